package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.media.Codec;
import com.morvin.dom.telephony.sniffer.sample.media.RtpPacket;
import com.morvin.dom.telephony.sniffer.sample.media.Track;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.Direction;
import com.morvin.dom.telephony.sniffer.sample.signalling.Sdp;
import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.Reports;
import com.morvin.dom.telephony.sniffer.sample.storage.ResumedFiles;
import com.morvin.dom.telephony.sniffer.sample.storage.RunningCalls;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.storage.StoredFile;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.time.Instant;
import java.time.ZoneId;
import java.time.format.DateTimeFormatter;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.EnumMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeSet;

/**
 * The recording of one call: its messages, its media and its remarks. Belongs to the recorder thread; the report is
 * written on the disk thread. Times are milliseconds since 1970 by the clock of the recorder; a step of the time of day
 * during the call changes nothing within it.
 */
final class Recording {
  private static final DateTimeFormatter FILE_TIME =
      DateTimeFormatter.ofPattern("yyyyMMdd-HHmmss").withZone(ZoneId.systemDefault());
  private static final int MAX_STEPS = 200;
  private static final int MAX_DIALLED = 64;
  private static final int MAX_UNSAVED = 64;
  /** A message is compared with this number of earlier ones: it may be repeated, or delivered by another sniffer. */
  private static final int COMPARED = 16;

  private record Dialled(Direction direction, String digits, long time) {}

  final Call call;
  final RunningCalls.Journal journal;
  private final Map<Direction, Track> tracks = new EnumMap<>(Direction.class);
  private final List<CallReport.Step> ladder = new ArrayList<>();
  private final List<Dialled> dialled = new ArrayList<>();
  private final int[] recent = new int[COMPARED];
  private int messages;
  /** Messages that are not in the journal yet. */
  private final List<RunningCalls.TimedFrame> unsaved = new ArrayList<>();
  private final String name;
  private final long start;
  private final long skew;
  private final boolean keepsDigits;
  private boolean shown;

  /**
   * Makes a recording without media.
   *
   * @param skew is added to all times, so that the call has the time of day of its start
   * @param keepsDigits whether pressed keys are recorded
   */
  Recording(Call call, RunningCalls.Journal journal, Store store, long skew, boolean keepsDigits) {
    this.call = call;
    this.journal = journal;
    this.skew = skew;
    this.keepsDigits = keepsDigits;
    start = call.start() + skew;
    name = FILE_TIME.format(Instant.ofEpochMilli(start)) + "-" + call.fileNames();
    for (Direction direction : Direction.values()) {
      tracks.put(direction, new Track(store, name + "-" + direction, keepsDigits));
    }
  }

  /** Adds a signalling message, unless it is a repeated one. */
  void signalled(Frame frame, String label, long time, boolean restored) {
    int hash = 31 * frame.source().hashCode() + Arrays.hashCode(frame.payload());
    if (Arrays.stream(recent).anyMatch(other -> other == hash)) {
      return;
    }
    if (!restored && unsaved.size() < MAX_UNSAVED) {
      unsaved.add(new RunningCalls.TimedFrame(time + skew, frame));
    }
    recent[messages++ % COMPARED] = hash;
    if (ladder.size() < MAX_STEPS) {
      ladder.add(new CallReport.Step((time + skew - start) / 1000.0, frame.source().toString(),
          frame.destination().toString(), Text.printable(label)));
    }
  }

  /** Adds keys that were reported by the signalling. */
  void dialled(Direction direction, String digits, long time) {
    if (keepsDigits && dialled.size() < MAX_DIALLED) {
      dialled.add(new Dialled(direction, digits, time + skew));
    }
  }

  /** Adds a media datagram. Returns whether it is valid. */
  boolean media(Frame frame, Direction direction, Sdp.Media media, long time) {
    Track track = tracks.get(direction);
    if (media.kind() == Sdp.Kind.FAX) {
      track.keep(frame, "T.38", time + skew);
      return true;
    }
    if (RtpPacket.isRtcp(frame.payload())) {
      return true;
    }
    RtpPacket packet = RtpPacket.parse(frame.payload());
    if (packet == null) {
      return false;
    }
    Codec codec = media.kind() == Sdp.Kind.SECURE_RTP ? Codec.SRTP
        : Codec.of(packet.payloadType(), media.codecs().get(packet.payloadType()));
    track.accept(frame, packet, codec, time + skew);
    return true;
  }

  /** Returns the number of lost packets in both directions. */
  long lost() {
    return tracks.values().stream().mapToLong(Track::lost).sum();
  }

  /** Returns "from-caller 3 packets, 0 lost; from-callee 4 packets, 1 lost". */
  String counts() {
    List<String> counts = new ArrayList<>();
    tracks.forEach((direction, track) ->
        counts.add(direction + " " + Text.count(track.received(), "packet") + ", " + track.lost() + " lost"));
    return String.join("; ", counts);
  }

  /** Returns the remarks for the report. */
  Set<String> notes() {
    Set<String> all = new TreeSet<>(call.notes());
    tracks.forEach((direction, track) -> track.notes().forEach(note -> all.add(direction + ": " + note)));
    return all;
  }

  /** Marks the call as shown to the listener. Returns whether it was not shown before. */
  boolean markShown() {
    boolean first = !shown;
    shown = true;
    return first;
  }

  /** Returns a report of the running call, without an end and without files. */
  CallReport unfinished() {
    CallReport.Voice none = new CallReport.Voice(0, 0, List.of(), List.of());
    return new CallReport("", call.protocol(), Text.printable(call.id()), Text.printable(call.caller()),
        Text.printable(call.callee()), start, 0, "", none, none, "", List.of(), List.copyOf(ladder), List.of());
  }

  /** Queues the report for the disk thread. */
  void report(Reports reports, String how, long end) {
    tracks.values().forEach(Track::finish);
    reports.write(name, tracks.get(Direction.FROM_CALLER).stretches(start),
        tracks.get(Direction.FROM_CALLEE).stretches(start), names -> new CallReport(names.report(), call.protocol(),
            Text.printable(call.id()), Text.printable(call.caller()), Text.printable(call.callee()), start, end + skew,
            Text.printable(how), voice(Direction.FROM_CALLER), voice(Direction.FROM_CALLEE),
            names.stereo().stream().findFirst().map(CallReport.Part::file).orElse(""),
            names.stereo().stream().skip(1).toList(), List.copyOf(ladder), notes(names.stereoMissing())));
  }

  private List<String> notes(boolean stereoMissing) {
    List<String> all = new ArrayList<>(notes().stream().map(Text::printable).toList());
    if (stereoMissing) {
      all.add("no stereo file: it did not fit on the disk, or the recorder was stopped");
    }
    return all;
  }

  private CallReport.Voice voice(Direction direction) {
    CallReport.Voice voice = tracks.get(direction).report(start);
    List<CallReport.Digit> digits = new ArrayList<>(voice.digits());
    dialled.stream().filter(some -> some.direction == direction)
        .forEach(some -> digits.add(new CallReport.Digit((some.time - start) / 1000.0, some.digits)));
    return new CallReport.Voice(voice.packets(), voice.lost(), voice.parts(), digits);
  }

  /** Returns the state for a restart, and queues the unsaved messages and media for the disk thread. */
  RunningCalls.Saved save(RunningCalls running) {
    unsaved.forEach(message -> running.append(journal, message.time(), message.frame()));
    unsaved.clear();
    try {
      ByteArrayOutputStream bytes = new ByteArrayOutputStream();
      DataOutputStream out = new DataOutputStream(bytes);
      List<StoredFile> files = new ArrayList<>();
      for (Track track : tracks.values()) {
        track.flush();
        track.save(out);
        files.addAll(track.files());
      }
      return new RunningCalls.Saved(journal, bytes.toByteArray(), files);
    } catch (IOException e) {
      throw new UncheckedIOException(e);  // an array in memory cannot fail
    }
  }

  /** Restores a saved state. */
  void restore(byte[] state, ResumedFiles files) throws IOException {
    DataInputStream in = new DataInputStream(new ByteArrayInputStream(state));
    for (Track track : tracks.values()) {
      track.restore(in, files);
    }
  }
}
