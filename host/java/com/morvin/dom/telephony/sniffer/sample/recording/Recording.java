package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.media.MediaPool;
import com.morvin.dom.telephony.sniffer.sample.media.Track;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.Direction;
import com.morvin.dom.telephony.sniffer.sample.signalling.MediaUse;
import com.morvin.dom.telephony.sniffer.sample.signalling.Moment;
import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.Encoding;
import com.morvin.dom.telephony.sniffer.sample.storage.LeftFile;
import com.morvin.dom.telephony.sniffer.sample.storage.PcapFile;
import com.morvin.dom.telephony.sniffer.sample.storage.Reports;
import com.morvin.dom.telephony.sniffer.sample.storage.ResumedFiles;
import com.morvin.dom.telephony.sniffer.sample.storage.RunningCalls;
import com.morvin.dom.telephony.sniffer.sample.storage.StereoFile;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.storage.StoredFile;
import com.morvin.dom.telephony.sniffer.sample.storage.WavChannel;
import com.morvin.dom.telephony.sniffer.sample.storage.WavFile;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.ByteBuffer;
import java.time.Instant;
import java.time.ZoneId;
import java.time.format.DateTimeFormatter;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Comparator;
import java.util.List;
import java.util.Set;
import java.util.TreeSet;
import java.util.stream.Stream;

/**
 * The recording of one call: its messages, its media and its remarks. Belongs to the recorder thread; the report is
 * written on the disk thread. Times are milliseconds since 1970 by the clock of the recorder; a step of the time of day
 * during the call changes nothing within it.
 */
final class Recording {
  private static final DateTimeFormatter FILE_TIME =
      DateTimeFormatter.ofPattern("yyyyMMdd-HHmmss").withZone(ZoneId.systemDefault());
  /** A longer list of messages keeps its first and its last ones. Those between are refreshes of a long call. */
  private static final int MAX_STEPS = 200;
  private static final int FIRST_STEPS = 50;
  private static final int MAX_DIALLED = 64;
  /** The memory in bytes of the messages that are kept for a capture file. */
  private static final int MAX_KEPT = 20 << 10;
  private static final int MAX_LEFT = 64;
  /** The same of the messages that wait for the journal. */
  private static final int MAX_UNSAVED = 80 << 10;
  /** A message is compared with this number of earlier ones: it may be repeated, or delivered by another sniffer. */
  private static final int COMPARED = 16;
  private static final int USUAL_STATE = 512;
  /** A voice that stops this long before the end of its call gets a note. */
  private static final long EARLY_MILLIS = 5_000;
  /** The same after a restart, which can lose the last seconds of sound when the disk is slow. */
  private static final long EARLY_AFTER_RESTART_MILLIS = 500;
  /** A voice that begins this long after the answer gets a note when there was an outage. */
  private static final long LATE_AFTER_OUTAGE_MILLIS = 1_000;
  /** A saved state can have sound this long before the first message, which may have been late, and after the last. */
  private static final long MOST_BEFORE_MILLIS = 600_000;
  private static final long MOST_AFTER_MILLIS = 60_000;

  private static final int MAX_OUTAGES = 8;

  private record Outage(long from, long to) {}

  private record Dialled(Direction direction, String digits, long time) {}

  final Call call;
  final RunningCalls.Journal journal;
  private final Voice fromCaller;
  private final Voice fromCallee;
  private final List<CallReport.Step> ladder = new ArrayList<>();
  private final List<Dialled> dialled = new ArrayList<>();
  private final KeptMessages kept = new KeptMessages(MAX_KEPT);
  private final int[] recent = new int[COMPARED];
  private int messages;
  private long latest;
  /** Messages that are not in the journal yet. */
  private final KeptMessages unsaved = new KeptMessages(MAX_UNSAVED);
  private final Store store;
  private final String name;
  private final long start;
  private final long skew;
  private final Track.Options options;
  private final MediaPool pool;
  private final boolean shares;
  /** The file of both voices; null before the first one, and when each has a file of its own. */
  private WavFile stereo;
  /** Files from before a restart that the recording does not continue. */
  private final List<LeftFile> left = new ArrayList<>();
  /** The times whose messages came, or were known, without the media: sound may have been lost. */
  private final List<Outage> outages = new ArrayList<>();
  private boolean shown;
  /** Whether the saved state is out of date. */
  private boolean changed = true;
  /** Whether the whole state has to be saved, because an increment cannot hold the change. */
  private boolean changedWholly = true;
  /** The destinations with media of the last state. */
  private List<MediaUse> savedUses = List.of();
  /** The stereo file is written, so the files of the voices are not needed. Set on the disk thread. */
  private volatile boolean mixed;

  /**
   * Makes a recording without media.
   *
   * @param skew is added to all times, so that the call has the time of day of its start
   * @param pool has the memory for what is not usual
   * @param shares whether both voices are written to one file from the start, if their format allows it
   */
  Recording(Call call, RunningCalls.Journal journal, Store store, long skew, Track.Options options, MediaPool pool,
      boolean shares) {
    this.call = call;
    this.journal = journal;
    this.store = store;
    this.skew = skew;
    this.options = options;
    this.pool = pool;
    this.shares = shares;
    start = call.start().stamp() + skew;
    name = FILE_TIME.format(Instant.ofEpochMilli(start)) + "-" + call.fileNames();
    fromCaller = new Voice(this, track(Direction.FROM_CALLER), skew);
    fromCallee = new Voice(this, track(Direction.FROM_CALLEE), skew);
  }

  private Track track(Direction direction) {
    return track(direction, name + "-" + direction);
  }

  private Track track(Direction direction, String fileName) {
    return new Track(store, fileName, options, format -> channel(direction, format), pool, this::begin);
  }

  /** Returns the channel of a direction in the file of both voices. G.711 has a place there that is known at once. */
  private WavChannel channel(Direction direction, WavFile.Format format) {
    if (!shares || format.encoding() == Encoding.LINEAR) {
      return null;
    }
    if (stereo == null) {
      stereo = store.wav(name + Reports.STEREO, format.with(2), start);
    }
    return stereo.format().equals(format.with(2)) ? stereo.take(direction.ordinal()) : null;
  }

  /** Returns one direction. */
  Voice voice(Direction direction) {
    return direction == Direction.FROM_CALLER ? fromCaller : fromCallee;
  }

  /**
   * Adds the recording of a call that is a leg of this one.
   *
   * @param turned whether its caller is on the side of the callee of this call
   */
  void add(Recording leg, boolean turned, RunningCalls running) {
    changed = true;
    changedWholly = true;
    long later = leg.start - start;
    leg.ladder.forEach(step -> ladder.add(new CallReport.Step((Math.round(step.at() * 1000) + later) / 1000.0,
        step.from(), step.to(), step.label())));
    ladder.sort(Comparator.comparingDouble(CallReport.Step::at));
    if (ladder.size() > MAX_STEPS) {
      ladder.subList(FIRST_STEPS, FIRST_STEPS + ladder.size() - MAX_STEPS).clear();
    }
    list(leg.left);
    leg.kept.forEach(message -> keep(message.frame(), message.time()));
    leg.dialled.forEach(some -> dialled(some.direction.turned(turned), some.digits, some.time - skew));
    for (Direction direction : Direction.values()) {
      addTracks(voice(direction), leg.voice(direction.turned(turned)));
    }
    if (leg.journal != journal) {
      leg.saveMessages(running);
      running.merge(journal, leg.journal);
    }
  }

  /** Adds files from before a restart that the recording does not continue. They are only listed. */
  void list(List<LeftFile> files) {
    files.stream().filter(file -> left.stream().noneMatch(other -> other.fileName().equals(file.fileName())))
        .limit(MAX_LEFT - left.size()).forEach(left::add);
  }

  /**
   * Records that messages were known after a restart, or came late, without the media of that time.
   *
   * @param from when the first of them was captured, by the clock of the recorder
   * @param to when they came
   */
  void markOutage(long from, long to) {
    addOutage(new Outage(from + skew, to + skew));
  }

  private void addOutage(Outage outage) {
    Outage last = outages.isEmpty() ? null : outages.get(outages.size() - 1);
    if (last != null && (outages.size() == MAX_OUTAGES || outage.from <= last.to && outage.to >= last.from)) {
      outages.set(outages.size() - 1, new Outage(Math.min(last.from, outage.from), Math.max(last.to, outage.to)));
    } else {
      outages.add(outage);
    }
  }

  /** Whether there was an outage between two times. */
  private boolean hadOutage(long from, long to) {
    return outages.stream().anyMatch(outage -> outage.from < to && outage.to > from);
  }

  private static void addTracks(Voice voice, Voice added) {
    voice.add(added);
    if (!added.track.isEmpty() && voice.track.isEmpty()) {
      voice.track = added.track;
    } else if (!added.track.isEmpty()) {
      voice.track.flush();  // first, so that its files have the lower numbers
      added.track.finish();
      voice.earlier.add(added.track);
    }
    voice.earlier.addAll(added.earlier);
  }

  /** Adds all tracks to a list. */
  void addTracks(List<Track> all) {
    for (Voice voice : List.of(fromCaller, fromCallee)) {
      all.add(voice.track);
      all.addAll(voice.earlier);
    }
  }

  /** Returns all tracks in a fixed order. */
  private Stream<Track> allTracks() {
    return Stream.of(fromCaller, fromCallee).flatMap(Voice::tracks);
  }

  /**
   * Adds a signalling message, unless it is a repeated one.
   *
   * @param restoring the journal that the message comes from; null when it is a new one
   */
  void signalled(Frame frame, String label, long time, RunningCalls.Journal restoring) {
    int hash = 31 * frame.source().hashCode() + Arrays.hashCode(frame.payload());
    if (Arrays.stream(recent).anyMatch(other -> other == hash)) {
      return;
    }
    long at = time + skew;
    if (restoring != journal) {
      unsaved.add(new RunningCalls.TimedFrame(at, frame));
    }
    changed = true;
    recent[messages++ % COMPARED] = hash;
    if (frame.protocol() == Frame.SIP && (options.keepsDigits() || !label.startsWith("INFO"))) {
      keep(frame, at);
    }
    if (ladder.size() == MAX_STEPS) {
      ladder.remove(FIRST_STEPS);
    }
    String from = frame.source().toString();
    String to = frame.destination().toString();
    double offset = (at - start) / 1000.0;
    ladder.add(new CallReport.Step(at < latest ? Math.max(offset, lastBetween(from, to)) : offset, from, to,
        Text.printable(label)));
    if (at < latest) {
      ladder.sort(Comparator.comparingDouble(CallReport.Step::at));  // a leg that another recorder has followed
    }
    latest = Math.max(latest, at);
  }

  /**
   * Returns when the last message passed between two addresses. Messages between them arrive in their order, although
   * the times of some of them are those of their arrival, and others are those of their capture.
   */
  private double lastBetween(String from, String to) {
    return ladder.stream().filter(step -> step.from().equals(from) && step.to().equals(to)
        || step.from().equals(to) && step.to().equals(from)).mapToDouble(CallReport.Step::at).max()
        .orElse(Double.NEGATIVE_INFINITY);
  }

  private void keep(Frame frame, long time) {
    kept.add(new RunningCalls.TimedFrame(time, frame));
    fromCaller.track.signalled(frame, time);
    fromCallee.track.signalled(frame, time);
  }

  /** Begins a capture file with the signalling so far. */
  private void begin(PcapFile file) {
    kept.forEach(message -> file.write(message.frame(), message.time()));
  }

  /** Adds keys that were reported by the signalling. */
  void dialled(Direction direction, String digits, long time) {
    if (options.keepsDigits() && dialled.size() < MAX_DIALLED) {
      dialled.add(new Dialled(direction, digits, time + skew));
    }
  }

  /** Whether media was received. */
  boolean hasMedia() {
    return !left.isEmpty() || !allTracks().allMatch(Track::isEmpty);
  }

  /** Returns the number of lost packets in both directions. */
  long lost() {
    long lost = fromCaller.track.lost() + fromCallee.track.lost();
    for (Voice voice : List.of(fromCaller, fromCallee)) {
      for (Track track : voice.earlier) {
        lost += track.lost();
      }
    }
    return lost;
  }

  /** Returns the number of bytes of media that could not be written. */
  long missing() {
    return allTracks().mapToLong(Track::missing).sum();
  }

  /** Returns "from-caller 3 packets, 0 lost; from-callee 4 packets, 1 lost". */
  String counts() {
    List<String> counts = new ArrayList<>();
    for (Direction direction : Direction.values()) {
      long received = voice(direction).tracks().mapToLong(Track::received).sum();
      long lost = voice(direction).tracks().mapToLong(Track::lost).sum();
      counts.add(direction + " " + Text.count(received, "packet") + ", " + lost + " lost");
    }
    return String.join("; ", counts);
  }

  /**
   * Returns the remarks for the report.
   *
   * @param end of the call, by the clock of the recorder
   */
  Set<String> notes(long end) {
    Set<String> all = new TreeSet<>(call.notes());
    if (!left.isEmpty()) {
      all.add("what was recorded before a restart is in files of its own, and is not counted");
    }
    long answer = call.lifetime().answer() == null ? Long.MAX_VALUE : call.lifetime().answer().stamp() + skew;
    if (left.isEmpty() && hadOutage(answer, Long.MAX_VALUE) && fromCaller.heard() + fromCallee.heard() == 0) {
      all.add("no sound, after an outage");
    }
    for (Direction direction : Direction.values()) {
      Voice voice = voice(direction);
      voice.tracks().forEach(track -> track.notes().forEach(note -> all.add(direction + ": " + note)));
      if (voice.foreign() > 0) {
        all.add(direction + ": " + Text.count(voice.foreign(), "packet") + " of other sources ignored");
      }
      long late = sinceAnswer(voice);
      if (late >= LATE_AFTER_OUTAGE_MILLIS && hadOutage(answer, answer + late)) {
        all.add(direction + ": begins " + Text.seconds(late) + " s after the answer, after an outage");
      }
      long early = end + skew - voice.heard();
      if (voice.heard() > 0 && early >= EARLY_MILLIS) {
        all.add(direction + ": stopped " + early / 1000 + " s before the end of the call");
      } else if (voice.isSilentSinceRestart(early) && early >= EARLY_AFTER_RESTART_MILLIS) {
        all.add(direction + ": stopped " + Text.seconds(early) + " s before the end of the call, at a restart");
      }
    }
    return all;
  }

  /**
   * Returns how long after the answer a voice begins, in milliseconds; 0 when one of them is missing, or when its
   * beginning may be in a file from before a restart.
   */
  private long sinceAnswer(Voice voice) {
    Moment answer = call.lifetime().answer();
    return answer == null || !left.isEmpty() ? 0 : voice.track.stretches(answer.stamp() + skew).stream()
        .mapToLong(StereoFile.Stretch::start).min().orElse(0);
  }

  /** Marks the call as shown to the listener. Returns whether it was not shown before. */
  boolean markShown() {
    boolean first = !shown;
    shown = true;
    return first;
  }

  /** Whether the call was shown to the listener. */
  boolean isShown() {
    return shown;
  }

  /** Returns a report of the running call, without an end and without files. */
  CallReport unfinished() {
    CallReport.Voice none = new CallReport.Voice(0, 0, List.of(), List.of());
    return new CallReport("", call.protocol(), Text.printable(call.id()), Text.printable(call.caller()),
        Text.printable(call.callee()), start, 0, "", none, none, "", List.of(), List.copyOf(ladder), List.of(),
        legs(start));
  }

  /** Queues the report for the disk thread. */
  void report(Reports reports, String how, long end) {
    boolean hasMedia = hasMedia();
    allTracks().forEach(Track::finish);
    long began = began();
    List<CallReport.Leg> legs = legs(began);
    List<CallReport.Step> steps = ladder.stream().map(step -> new CallReport.Step(
        (Math.round(step.at() * 1000) + start - began) / 1000.0, step.from(), step.to(), step.label())).toList();
    reports.write(name, start, began, stereo, hasMedia, fromCaller.track.stretches(began),
        fromCallee.track.stretches(began), names -> new CallReport(names.report(), call.protocol(),
            Text.printable(call.id()), Text.printable(call.caller()), Text.printable(call.callee()), began,
            end(end), Text.printable(how), voice(Direction.FROM_CALLER, began, names),
            voice(Direction.FROM_CALLEE, began, names),
            names.stereo().stream().findFirst().map(CallReport.Part::file).orElse(""),
            names.stereo().stream().skip(1).toList(), steps, notes(end, names), legs));
  }

  /**
   * Returns when the call began: with its first message, or with sound that is older. Messages are read late when the
   * recorder was busy, but RTP timestamps show when the sound was sent.
   */
  private long began() {
    return start + Stream.of(fromCaller, fromCallee).flatMap(voice -> voice.track.stretches(start).stream())
        .mapToLong(StereoFile.Stretch::start).reduce(0, Math::min);
  }

  /** Returns the end of the call: not before its first message, which may have been read late. */
  private long end(long end) {
    return Math.max(start, end + skew);
  }

  /** Returns the length of the call in milliseconds, with its end by the clock of the recorder. */
  long length(long end) {
    return end(end) - began();
  }

  private List<String> notes(long end, Reports.Names names) {
    List<String> all = new ArrayList<>(notes(end).stream().map(Text::printable).toList());
    if (names.removed()) {
      all.add("the stereo file was removed while the call ran");
    }
    if (names.stereoMissing()) {
      all.add((stereo == null ? "no stereo file: it" : "the stereo file is as it was recorded: a better one")
          + " did not fit on the disk, or the recorder was stopped");
    }
    return all;
  }

  private CallReport.Voice voice(Direction direction, long began, Reports.Names names) {
    mixed = !names.stereoMissing();
    Voice own = voice(direction);
    List<CallReport.Voice> voices = own.tracks().map(track -> track.report(began,
        file -> file != stereo && (options.keepsVoices() || !mixed || track != own.track))).toList();
    List<CallReport.Digit> digits = new ArrayList<>();
    voices.forEach(voice -> digits.addAll(voice.digits()));
    dialled.stream().filter(some -> some.direction == direction)
        .forEach(some -> digits.add(new CallReport.Digit((some.time - began) / 1000.0, some.digits)));
    Stream<CallReport.Part> before = left.stream().filter(file -> isOf(direction, file))
        .map(file -> file.part((start - began) / 1000.0));
    List<CallReport.Part> parts = Stream.concat(before, voices.stream().flatMap(voice -> voice.parts().stream()))
        .sorted(Comparator.comparingDouble(CallReport.Part::offset)).toList();
    return new CallReport.Voice(voices.stream().mapToLong(CallReport.Voice::packets).sum(),
        voices.stream().mapToLong(CallReport.Voice::lost).sum(), parts, digits);
  }

  /** Whether a file is listed for a direction; that of both voices is listed for the caller. */
  private static boolean isOf(Direction direction, LeftFile file) {
    return file.fileName().contains("-" + Direction.FROM_CALLEE) == (direction == Direction.FROM_CALLEE);
  }

  private List<CallReport.Leg> legs(long began) {
    return call.legs().size() == 1 ? List.of() : call.legs().stream().map(leg ->
        new CallReport.Leg(Math.max(0, leg.start().stamp() + skew - began) / 1000.0, Text.printable(leg.id()),
            Text.printable(leg.caller()), Text.printable(leg.callee()), Text.printable(leg.how()))).toList();
  }

  /**
   * Returns the files that are not needed after the report is written: those in the stereo file. It does not hold the
   * sound of calls that have turned out to be legs. Called on the disk thread.
   */
  List<StoredFile> obsoleteFiles() {
    if (!mixed || options.keepsVoices()) {
      return List.of();
    }
    List<StoredFile> files = new ArrayList<>();
    List<StoredFile> others = new ArrayList<>();
    for (Voice voice : List.of(fromCaller, fromCallee)) {
      voice.track.addFiles(files);
      voice.track.addAside(others);
      voice.earlier.forEach(track -> track.addFiles(others));
    }
    files.removeAll(others);
    return files.stream().filter(file -> file instanceof WavFile && file != stereo).toList();
  }

  /** Writes the destinations with media: only the times when nothing else has changed. */
  private void save(List<MediaUse> uses, boolean whole, DataOutputStream out) throws IOException {
    List<MediaUse> untimed = uses.stream().map(use -> use.at(0)).toList();
    boolean complete = whole || !untimed.equals(savedUses);
    savedUses = untimed;
    out.writeShort(uses.size());
    out.writeBoolean(complete);
    for (MediaUse use : uses) {
      if (complete) {
        use.write(out);
      }
      out.writeLong(use.last() + skew);
    }
  }

  /** Returns the destinations with media of a call whose state was saved whole and then in increments. */
  static List<MediaUse> mediaUses(List<byte[]> states) throws IOException {
    List<MediaUse> uses = List.of();
    for (byte[] state : states) {
      DataInputStream in = new DataInputStream(new ByteArrayInputStream(state));
      in.readLong();
      uses = mediaUses(in, uses);
    }
    return uses;
  }

  private static List<MediaUse> mediaUses(DataInputStream in, List<MediaUse> before) throws IOException {
    List<MediaUse> uses = new ArrayList<>();
    int count = in.readUnsignedShort();
    boolean complete = in.readBoolean();
    for (int i = 0; i < count; i++) {
      MediaUse use = complete ? MediaUse.read(in) : before.get(i);
      uses.add(use.at(in.readLong()));
    }
    return uses;
  }

  /** Whether there is something to save. */
  boolean hasChanged() {
    return fromCaller.takeChanged() | fromCallee.takeChanged() | changed;
  }

  /**
   * Returns the state for a restart, and queues the unsaved messages and media for the disk thread.
   *
   * @param uses the destinations that have received media
   * @param all whether the state is whole, or an increment to the one before
   * @param atBoot the time at the start of the machine, by the clock of the recorder
   */
  RunningCalls.Saved save(RunningCalls running, List<MediaUse> uses, boolean all, long atBoot) {
    saveMessages(running);
    boolean whole = all || changedWholly;
    changed = false;
    changedWholly = false;
    if (stereo != null) {
      stereo.flush();  // first, because it can find an earlier begin
    }
    try {
      ByteArrayOutputStream bytes = new ByteArrayOutputStream(USUAL_STATE);
      DataOutputStream out = new DataOutputStream(bytes);
      List<StoredFile> files = new ArrayList<>();
      out.writeLong(atBoot + skew);
      save(uses, whole, out);
      out.writeInt(stereo == null ? -1 : Track.number(files, stereo));
      if (stereo != null) {
        out.writeByte(stereo.format().encoding().ordinal());
        out.writeInt(stereo.format().rate());
        out.writeLong(stereo.begin());
      }
      for (Voice voice : List.of(fromCaller, fromCallee)) {
        voice.save(out);
        out.writeInt(voice.earlier.size());
        save(voice.track, whole, out, files);
        for (Track track : voice.earlier) {
          save(track, whole, out, files);
        }
      }
      files.addAll(left);
      out.writeByte(outages.size());  // at the end, where earlier versions do not read it
      for (Outage outage : outages) {
        out.writeLong(outage.from);
        out.writeLong(outage.to);
      }
      return new RunningCalls.Saved(journal, whole, bytes.toByteArray(), files);
    } catch (IOException e) {
      throw new UncheckedIOException(e);  // an array in memory cannot fail
    }
  }

  private static void save(Track track, boolean whole, DataOutputStream out, List<StoredFile> files)
      throws IOException {
    out.writeUTF(track.fileName());
    track.flush();
    track.save(out, whole, files);
  }

  private void saveMessages(RunningCalls running) {
    List<RunningCalls.TimedFrame> messages = unsaved.takeAll();
    if (!messages.isEmpty()) {
      running.append(journal, messages);
    }
  }

  /** Returns the time at the start of the machine by the clock of a saved call, which stays as it was at its start. */
  static long atBoot(byte[] state) {
    return ByteBuffer.wrap(state).getLong();
  }

  /**
   * Restores a state that was saved whole and then in increments. When it is damaged, the recording has no media yet:
   * it goes on in new files.
   *
   * @param savedAt when the last state of any call was saved, by the clock of this recorder; 0 when that is not known
   */
  void restore(List<byte[]> states, ResumedFiles files, long savedAt) throws IOException {
    try {
      read(states, files);
      List<MediaUse> uses = mediaUses(states);
      check(uses);
      if (savedAt - uses.stream().mapToLong(MediaUse::last).max().orElse(savedAt) >= EARLY_AFTER_RESTART_MILLIS) {
        restartLostNothing();  // the call was on hold
      }
    } catch (IOException | RuntimeException e) {
      stereo = null;
      for (Direction direction : Direction.values()) {
        voice(direction).reset(track(direction));
      }
      throw e;
    }
  }

  /** States that what was not saved before the restart is delivered again. */
  void restartLostNothing() {
    fromCaller.restartLostNothing();
    fromCallee.restartLostNothing();
  }

  /** Checks that no sound lies outside its file and the call: else a file without end would be written. */
  private void check(List<MediaUse> uses) throws IOException {
    long heard = Math.max(fromCaller.heard(), fromCallee.heard());
    long last = Math.max(Math.max(latest, heard), uses.stream().mapToLong(MediaUse::last).max().orElse(start));
    long from = start - MOST_BEFORE_MILLIS;
    long to = last + MOST_AFTER_MILLIS;
    if (stereo != null && (stereo.begin() < from || stereo.begin() > to)
        || !allTracks().allMatch(track -> track.isWithin(from, to))) {
      throw new IOException("the state of its sound is damaged");
    }
  }

  private void read(List<byte[]> states, ResumedFiles files) throws IOException {
    int number = -1;
    List<MediaUse> uses = List.of();
    WavFile.Format format = null;
    long begin = start;
    for (byte[] state : states) {
      DataInputStream in = new DataInputStream(new ByteArrayInputStream(state));
      boolean first = state == states.get(0);
      in.readLong();
      uses = mediaUses(in, uses);
      number = in.readInt();
      if (number >= 0) {
        format = new WavFile.Format(Encoding.values()[in.readByte()], in.readInt(), 2);
        begin = in.readLong();
      }
      for (Direction direction : Direction.values()) {
        Voice voice = voice(direction);
        voice.restore(in);
        int earlier = in.readInt();
        voice.track = restore(direction, first ? null : voice.track, in);
        for (int i = 0; i < earlier; i++) {
          if (first) {
            voice.earlier.add(restore(direction, null, in));
          } else {
            restore(direction, voice.earlier.get(i), in);
          }
        }
      }
      outages.clear();
      for (int count = in.available() > 0 ? in.readByte() : 0; count > 0; count--) {
        addOutage(new Outage(in.readLong(), in.readLong()));
      }
    }
    stereo = format == null ? null : files.wav(number, name + Reports.STEREO, format, begin);
    for (Track track : allTracks().toList()) {
      track.resume(files);
    }
    fromCaller.resumed();
    fromCallee.resumed();
  }

  private Track restore(Direction direction, Track before, DataInputStream in) throws IOException {
    String fileName = in.readUTF();
    Track track = before != null ? before : track(direction, fileName);
    track.restore(in);
    return track;
  }
}
