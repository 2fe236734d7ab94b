package com.morvin.dom.telephony.sniffer.sample.media;

import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.Encoding;
import com.morvin.dom.telephony.sniffer.sample.storage.PcapFile;
import com.morvin.dom.telephony.sniffer.sample.storage.ResumedFiles;
import com.morvin.dom.telephony.sniffer.sample.storage.StereoFile;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.storage.StoredFile;
import com.morvin.dom.telephony.sniffer.sample.storage.WavChannel;
import com.morvin.dom.telephony.sniffer.sample.storage.WavFile;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Comparator;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeSet;
import java.util.function.Consumer;
import java.util.function.Predicate;

/**
 * The media of one direction of a call: its RTP sources and the files that they are written to. Belongs to the recorder
 * thread. Times are milliseconds since 1970.
 *
 * <p>Usually there is one source and one file. When the source changes (a transfer, music on hold), the new source
 * continues the file of the source that fell silent. Sources that send at the same time get a file each. Media that is
 * not decoded is kept in a capture file.
 */
public final class Track {
  // Limits against hostile traffic. Real calls stay far below them.
  private static final int MAX_SOURCES = 8;
  private static final int MAX_FILES = 8;
  private static final int MAX_PAYLOAD = 2048;
  private static final int MAX_NOTES = 16;

  /** The number of packets of a new source before it is assigned to a file. */
  private static final int PROBATION = 10;
  /** The most packets that are held back to find out why they are late. */
  private static final int MAX_LATE = 128;
  /** A pause is inserted when this number of packets agree on it: the time of capture of a packet can be missing. */
  private static final int AGREEING = 3;
  /** Packets that are late for this time stay late. */
  private static final long SETTLING_MILLIS = 500;
  private static final long MAX_BURST_MILLIS = 10_000;
  /** The number of packets of the old source that may come after the first packet of the new one. */
  private static final int STRAGGLERS = 2;
  /** A source continues the file of one with another address after this time without its packets. */
  private static final long MIN_SILENCE_MILLIS = 100;
  /** A datagram other than RTP is compared with this number of earlier ones, because it may be delivered again. */
  private static final int COMPARED = 512;
  /** RTP timestamp units in a millisecond. They are the same for G.722, which has twice the samples (RFC 3551). */
  private static final int TICKS = 8;

  /** The file of both voices of a call. */
  public interface SharedFile {
    /** Returns the channel of this direction for a voice of a format; null when there is none. */
    WavChannel take(WavFile.Format format);
  }

  /** What is recorded, and how. */
  public record Options(boolean keepsDigits, boolean linear, boolean keepsVoices) {}

  private final Store store;
  private final String fileName;
  private final Options options;
  private final SharedFile shared;
  private final Consumer<PcapFile> begun;
  /** The last one is the one whose packet came last, at the latest when another source's packet came. */
  private final List<Source> sources = new ArrayList<>();
  private final List<AudioOutput> outputs = new ArrayList<>();
  private final Set<String> notes = new TreeSet<>();
  private final Digits digits = new Digits();
  /** The hashes of the last datagrams other than RTP; most calls have none. */
  private int[] recent = {};
  private PcapFile undecoded;
  private String undecodedCodec = "";
  private long undecodedFirst;
  private long undecodedLast;
  /** Its number in the saved list; -1 when there was none. */
  private int savedUndecoded = -1;
  /** The source of the last packet, with its number: a look-up for each packet is not needed. */
  private Source lastSource;
  private int lastSsrc;
  private long lastIdentity;
  private long forgottenReceived;
  private long forgottenLost;
  private long forgottenIgnored;

  /**
   * Makes a track without media.
   *
   * @param fileName the name of its files, without a number and an extension
   * @param shared has room for the first source
   * @param begun is called for a new capture file, before the media is added
   */
  public Track(Store store, String fileName, Options options, SharedFile shared, Consumer<PcapFile> begun) {
    this.options = options;
    this.shared = shared;
    this.store = store;
    this.fileName = fileName;
    this.begun = begun;
  }

  /** Adds a signalling message to the capture file, if there is one: a reader needs it to decode the media. */
  public void signalled(Frame frame, long time) {
    if (undecoded != null) {
      undecoded.write(frame, time);
    }
  }

  /** Returns the name of its files. */
  public String fileName() {
    return fileName;
  }

  /** Whether nothing was received. */
  public boolean isEmpty() {
    return sources.isEmpty() && undecoded == null;
  }

  /** The number of steps of {@link #touch}: each reads what the one before has led to. */
  public static final int STEPS = 4;

  /** Reads the values that the next packet needs. Returns any value. */
  public long touch(int step) {
    Source source = lastSource;
    if (source == null || source.output == null) {
      return 0;
    }
    return switch (step) {
      case 0 -> source.expectedTimestamp;
      case 1 -> source.stream.touch() + source.output.touch();
      case 2 -> source.stream.touchSeen() + source.output.channel().touch();
      default -> source.output.channel().touchBlock();
    };
  }

  /**
   * Adds an RTP packet. Packets may come out of order.
   *
   * @param identity distinguishes sources with the same SSRC, which can be forged: the address, for example
   */
  public void accept(RtpPacket packet, long identity) {
    if (packet.length() > MAX_PAYLOAD) {
      note("oversized packets");
      return;
    }
    if (lastSource == null || lastSsrc != packet.ssrc() || lastIdentity != identity) {
      lastSsrc = packet.ssrc();
      lastIdentity = identity;
      lastSource = source(packet);
    }
    lastSource.stream.accept(packet, lastSource.player);
  }

  /** Returns the source of a packet. A source continues from another address when its next packet comes from there. */
  private Source source(RtpPacket packet) {
    Source source = find();
    if (source == null) {
      source = find(other -> other.ssrc == lastSsrc && other.stream.isNext(packet));
    }
    if (source == null) {
      makeRoom();
      source = new Source(lastSsrc);
    }
    source.identity = lastIdentity;
    sources.remove(source);
    sources.add(source);
    return source;
  }

  /** Returns the source with the SSRC and the identity of the last packet; null when there is none. */
  private Source find() {
    for (int i = 0; i < sources.size(); i++) {
      Source source = sources.get(i);
      if (source.ssrc == lastSsrc && source.identity == lastIdentity) {
        return source;
      }
    }
    return null;
  }

  private Source find(Predicate<Source> condition) {
    return sources.stream().filter(condition).findFirst().orElse(null);
  }

  /** Adds a datagram other than RTP. It is kept in the capture file under the given codec name. */
  public void keep(Frame frame, String what, long time) {
    int hash = Arrays.hashCode(frame.payload());
    if (recent.length == 0) {
      recent = new int[COMPARED];
    }
    if (Arrays.stream(recent).noneMatch(other -> other == hash)) {
      recent[(int) (forgottenReceived++ % COMPARED)] = hash;
      store(frame, what, time);
    }
  }

  private void store(Frame frame, String what, long time) {
    if (undecoded == null) {
      undecoded = store.pcap(fileName);
      undecodedCodec = what;
      undecodedFirst = time;
      begun.accept(undecoded);
    }
    undecodedLast = Math.max(undecodedLast, time);
    note(what.equals(Codec.SRTP.name()) ? "encrypted, kept as pcap" : what + " is not decoded: kept as a pcap file");
    undecoded.write(frame, time);
  }

  /**
   * Forgets a source when there are too many: the one that has been silent for the longest time. A source that is
   * recorded stays as long as there are others. Single packets are no voice: in a flood of forged sources they must not
   * be heard.
   */
  private void makeRoom() {
    if (sources.size() == MAX_SOURCES) {
      Source fresh = find(source -> source.output == null);
      Source oldest = fresh == null ? sources.get(0) : fresh;
      sources.remove(oldest);
      if (oldest.output != null || oldest.held.size() > STRAGGLERS) {
        oldest.finish();
      }
      forget(oldest);
      note("many sources");
    }
  }

  private void forget(Source source) {
    forgottenReceived += source.stream.received();
    forgottenLost += source.stream.lost();
    forgottenIgnored += source.stream.ignored();
  }

  /** Writes the packets that are held back, and forgets the sources. No more packets follow. */
  public void finish() {
    sources.forEach(Source::finish);
    sources.forEach(this::forget);
    sources.clear();
    lastSource = null;
    flush();
  }

  /** Passes all recorded media to the disk thread. */
  public void flush() {
    for (AudioOutput output : outputs) {
      output.channel().file().flush();
    }
    if (undecoded != null) {
      undecoded.flush();
    }
  }

  /** Returns the number of received packets without duplicates. */
  public long received() {
    return forgottenReceived + sources.stream().mapToLong(source -> source.stream.received()).sum();
  }

  /** Whether a file was begun: it is created before all that is queued for the disk from now on. */
  public boolean hasBegun() {
    for (int i = 0; i < outputs.size(); i++) {
      if (outputs.get(i).channel().file().hasBegun()) {
        return true;
      }
    }
    return undecoded != null;
  }

  /** Returns the number of lost packets. */
  public long lost() {
    long lost = forgottenLost;
    for (Source source : sources) {
      lost += source.stream.lost();
    }
    return lost;
  }

  /** Adds the files to a list, unless they are there. */
  public void addFiles(List<StoredFile> files) {
    for (AudioOutput output : outputs) {
      number(files, output.channel().file());
    }
    if (undecoded != null) {
      number(files, undecoded);
    }
  }

  /** Returns the number of a file in a list, to which it is added if it is not there. */
  public static int number(List<StoredFile> files, StoredFile file) {
    int number = files.indexOf(file);
    if (number < 0) {
      number = files.size();
      files.add(file);
    }
    return number;
  }

  /** Returns remarks for the report. */
  public Set<String> notes() {
    long missing = undecoded == null ? 0 : undecoded.missing();
    for (AudioOutput output : outputs) {
      missing += output.channel().missing();
    }
    if (missing > 0) {
      note((missing >> 10) + 1 + " KB could not be written: the disk was full or too slow");
    }
    if (forgottenIgnored > 0) {
      note(Text.count(forgottenIgnored, "packet") + " with the SSRC of the voice and other numbers ignored");
    }
    return notes;
  }

  /**
   * Describes the track for the report. Called on the disk thread after its files have been written.
   *
   * @param isNamed whether a file stays as one of the voice
   */
  public CallReport.Voice report(long callStart, Predicate<WavFile> isNamed) {
    List<CallReport.Part> parts = new ArrayList<>();
    outputs.stream().filter(output -> output.channel().file().path() != null)
        .forEach(output -> parts.add(output.part(callStart, isNamed.test(output.channel().file()))));
    if (undecoded != null && undecoded.path() != null) {
      parts.add(new CallReport.Part(undecoded.fileName(), undecodedCodec, (undecodedFirst - callStart) / 1000.0,
          (undecodedLast - undecodedFirst) / 1000.0, List.of()));
    }
    parts.sort(Comparator.comparingDouble(CallReport.Part::offset));
    return new CallReport.Voice(received(), lost(), parts, digits.pressed().stream()
        .map(digit -> new CallReport.Digit((digit.time() - callStart) / 1000.0, String.valueOf(digit.key()))).toList());
  }

  /** Returns the stretches of speech, for the file with both directions. */
  public List<StereoFile.Stretch> stretches(long callStart) {
    return outputs.stream().flatMap(output -> output.stretches(callStart).stream()).toList();
  }

  private void note(String text) {
    if (notes.size() < MAX_NOTES) {
      notes.add(text);
    }
  }

  /** One source of RTP. */
  private final class Source {
    private final int ssrc;
    private long identity;
    private final RtpStream stream = new RtpStream();
    private final Consumer<RtpPacket> player = this::play;
    private final List<RtpPacket> held = new ArrayList<>();
    /** Whether there are any in {@code held}: a packet in time need not touch it. */
    private boolean holds;
    private final Map<AudioOutput, Long> writtenBefore = new LinkedHashMap<>();
    private G722 g722;
    private AudioOutput output;
    private int savedOutput;
    private int expectedTimestamp;
    /** What was in the file already when the source was restored; null when no packet can be there any more. */
    private Overlap overlap;
    private long lostBefore;

    Source(int ssrc) {
      this.ssrc = ssrc;
      noteWritten();
    }

    private void noteWritten() {
      outputs.forEach(other -> writtenBefore.put(other, other.packets()));
    }

    void play(RtpPacket packet) {
      switch (packet.codec().kind()) {
        case COMFORT_NOISE -> { }
        case TELEPHONE_EVENT -> {
          if (options.keepsDigits) {
            digits.accept(packet);
          }
        }
        case OTHER -> store(packet.frame(), packet.codec().name(), packet.time());
        default -> playAudio(packet);
      }
    }

    private void playAudio(RtpPacket packet) {
      if (overlap != null && isInFile(packet)) {
        return;
      }
      if (output != null && output.isOwnedBy(this) && output.channel().rate() == packet.codec().rate()
          && !output.channel().full()) {
        playInTime(packet);
        return;
      }
      if (held.isEmpty() && writtenBefore.isEmpty()) {
        noteWritten();
      }
      hold(packet);
      if (outputs.isEmpty() || held.size() == PROBATION) {
        assignOutput();
      }
    }

    /** Whether the packet is in the file already: a sniffer has sent it again after a restart. */
    private boolean isInFile(RtpPacket packet) {
      if (overlap.holds(packet)) {
        expectedTimestamp = overlap.endTimestamp();
        return true;
      }
      int begun = overlap.begun(packet);
      if (begun > 0 && output.channel().rewind(begun)) {
        expectedTimestamp = packet.timestamp();
      }
      if (overlap.endsWith(packet)) {
        overlap = null;
        output.endOverlap();
      }
      return false;
    }

    /**
     * Writes a packet unless it is much later than its timestamp says. Either the packets before it were held up, and
     * then the next ones come in a burst; or the timestamps stood still during a pause, and then the next ones are as
     * late.
     */
    private void playInTime(RtpPacket packet) {
      long delay = delay(packet);
      if (delay < AudioOutput.PAUSE_MILLIS || pauseBefore(packet) < 0) {
        if (holds) {
          writeHeld();
        }
        write(packet);
        return;
      }
      hold(packet);
      if (held.size() > MAX_LATE) {
        write(held.remove(0));
      } else if (held.size() >= AGREEING && packet.time() - held.get(0).time() >= SETTLING_MILLIS) {
        insertPause();
      }
    }

    private void hold(RtpPacket packet) {
      held.add(packet.keep());
      holds = true;
    }

    private int pauseBefore(RtpPacket packet) {
      return packet.timestamp() - expectedTimestamp;
    }

    private long delay(RtpPacket packet) {
      return output.delay(pauseBefore(packet) / TICKS, packet.time());
    }

    /** Whether the late packets came much faster than they were sent: they were held up, as in an outage of a link. */
    private boolean cameInBurst() {
      RtpPacket first = held.get(0);
      RtpPacket last = held.get(held.size() - 1);
      return (last.timestamp() - first.timestamp()) / TICKS > 2 * (last.time() - first.time());
    }

    /** Places the late packets where they were captured. */
    private void insertPause() {
      note("time stamps stood still during a pause");
      expectedTimestamp -= (int) held.stream().mapToLong(this::delay).min().orElse(0) * TICKS;
      writeHeld();
    }

    private void writeHeld() {
      held.forEach(this::write);
      held.clear();
      holds = false;
    }

    void finish() {
      stream.drain(this::play);
      if (!held.isEmpty() && output != null && output.isOwnedBy(this)) {
        if (held.size() < AGREEING || cameInBurst()) {
          writeHeld();
        } else {
          insertPause();
        }
      } else if (!held.isEmpty()) {
        assignOutput();
      }
    }

    /** Assigns the source to a file: that of a source that has fallen silent, or else a new one. */
    private void assignOutput() {
      RtpPacket first = held.get(0);
      int rate = first.codec().rate();
      output = outputs.stream().filter(other -> isAbandoned(other, rate)).findFirst()
          .orElseGet(() -> open(first.codec()));
      List<RtpPacket> ready = List.copyOf(held);
      held.clear();
      holds = false;
      writtenBefore.clear();
      if (output != null) {
        output.setOwner(this);
        expectedTimestamp = first.timestamp() - (int) output.pauseUntil(earliest(ready)) * TICKS;
        ready.stream().filter(packet -> packet.codec().rate() == rate).forEach(this::write);
      }
    }

    /** Returns the time of the first packet by the packet that was held up least. */
    private static long earliest(List<RtpPacket> packets) {
      RtpPacket first = packets.get(0);
      return packets.stream()
          .mapToLong(next -> next.time() - (next.timestamp() - first.timestamp()) / TICKS)
          .filter(time -> Math.abs(time - first.time()) < MAX_BURST_MILLIS).min().orElse(first.time());
    }

    private boolean isAbandoned(AudioOutput other, int rate) {
      Long before = writtenBefore.get(other);
      return before != null && other.packets() - before <= STRAGGLERS && !other.channel().full()
          && other.channel().rate() == rate && !isInterrupted(other);
    }

    /** Whether a burst from another address came while a source writes to a file. */
    private boolean isInterrupted(AudioOutput other) {
      return other.owner() instanceof Source writer && writer.identity != identity
          && held.get(held.size() - 1).time() - writer.stream.lastTime() < MIN_SILENCE_MILLIS;
    }

    private void write(RtpPacket packet) {
      long pause = packet.timestamp() - expectedTimestamp;
      if (pause < 0 || pause > 0 && pause > output.maxPauseAt(packet.time()) * TICKS) {
        note("timestamp jumps");
        pause = output.pauseUntil(packet.time()) * TICKS;
      }
      boolean missing = stream.lost() > lostBefore;
      lostBefore = stream.lost();
      expectedTimestamp = packet.timestamp() + packet.length();
      output.begin(pause * (packet.codec().rate() / 1000) / TICKS, missing, packet.time());
      writeSamples(packet, output.channel());
    }

    private void writeSamples(RtpPacket packet, WavChannel channel) {
      switch (packet.codec().kind()) {
        case PCMA -> channel.write(packet.bytes(), packet.offset(), packet.length(), Encoding.A_LAW);
        case PCMU -> channel.write(packet.bytes(), packet.offset(), packet.length(), Encoding.MU_LAW);
        default -> {
          g722 = g722 == null ? new G722() : g722;
          channel.write(g722.decode(packet.bytes(), packet.offset(), packet.length()));
        }
      }
    }

    void save(DataOutput out) throws IOException {
      out.writeInt(ssrc);
      out.writeLong(identity);
      stream.save(out);
      out.writeInt(output != null && output.isOwnedBy(this) ? outputs.indexOf(output) : -1);
      out.writeInt(overlap == null ? expectedTimestamp : overlap.knownTimestamp());
      out.writeLong(lostBefore);
      out.writeInt(held.size());
      for (RtpPacket packet : held) {
        packet.save(out);
      }
    }

    void restore(DataInput in) throws IOException {
      stream.restore(in);
      savedOutput = in.readInt();
      expectedTimestamp = in.readInt();
      lostBefore = in.readLong();
      for (int count = in.readInt(); count > 0; count--) {
        hold(RtpPacket.restore(in));
      }
    }

    /** Goes on after a restart. The files are open by now. */
    void resume() throws IOException {
      if (savedOutput >= 0) {
        output = outputs.get(savedOutput);
        output.setOwner(this);
        overlap = output.beginOverlap(stream.next(), expectedTimestamp);
        held.removeIf(overlap::holds);
        holds = !held.isEmpty();
        expectedTimestamp = overlap.endTimestamp();
      }
      noteWritten();
    }
  }

  private AudioOutput open(Codec codec) {
    if (outputs.size() == MAX_FILES) {
      note("more sources than files");
      return null;
    }
    WavFile.Format format = format(codec);
    WavChannel channel = outputs.isEmpty() ? shared.take(format) : null;
    AudioOutput output = new AudioOutput(channel != null ? channel : store.wav(fileName, format, 0).take(0),
        codec.name());
    outputs.add(output);
    return output;
  }

  private WavFile.Format format(Codec codec) {
    Encoding encoding = options.linear ? Encoding.LINEAR : switch (codec.kind()) {
      case PCMA -> Encoding.A_LAW;
      case PCMU -> Encoding.MU_LAW;
      default -> Encoding.LINEAR;
    };
    return new WavFile.Format(encoding, codec.rate(), 1);
  }

  /**
   * Saves the state for a restart, without the content of the files.
   *
   * @param whole whether all of it is saved, or what has changed since the last time
   * @param files the files of the call, to which those of the track are added
   */
  public void save(DataOutput out, boolean whole, List<StoredFile> files) throws IOException {
    out.writeLong(forgottenReceived);
    out.writeLong(forgottenLost);
    out.writeInt(notes.size());
    for (String note : notes) {
      out.writeUTF(note);
    }
    digits.save(out, whole);
    out.writeInt(outputs.size());
    for (AudioOutput output : outputs) {
      output.save(out, whole, files);
    }
    out.writeInt(undecoded == null ? -1 : number(files, undecoded));
    out.writeUTF(undecodedCodec);
    out.writeLong(undecodedFirst);
    out.writeLong(undecodedLast);
    out.writeInt(sources.size());
    for (Source source : sources) {
      source.save(out);
    }
  }

  /** Restores what was saved, on top of what was restored before. {@link #resume} follows. */
  public void restore(DataInput in) throws IOException {
    forgottenReceived = in.readLong();
    forgottenLost = in.readLong();
    for (int count = in.readInt(); count > 0; count--) {
      notes.add(in.readUTF());
    }
    digits.restore(in);
    int count = in.readInt();
    for (int i = 0; i < count; i++) {
      AudioOutput output = AudioOutput.restore(i < outputs.size() ? outputs.get(i) : null, in);
      if (i == outputs.size()) {
        outputs.add(output);
      }
    }
    savedUndecoded = in.readInt();
    undecodedCodec = in.readUTF();
    undecodedFirst = in.readLong();
    undecodedLast = in.readLong();
    sources.clear();
    for (count = in.readInt(); count > 0; count--) {
      Source source = new Source(in.readInt());
      source.identity = in.readLong();
      sources.add(source);
      source.restore(in);
    }
  }

  /** Goes on after a restart. */
  public void resume(ResumedFiles files) throws IOException {
    for (AudioOutput output : outputs) {
      output.open(files, fileName);
    }
    if (savedUndecoded >= 0) {
      undecoded = files.pcap(savedUndecoded, fileName);
    }
    for (Source source : sources) {
      source.resume();
    }
  }
}
