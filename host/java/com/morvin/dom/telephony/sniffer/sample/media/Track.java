package com.morvin.dom.telephony.sniffer.sample.media;

import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.storage.Blocks;
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
import java.util.Collections;
import java.util.Comparator;
import java.util.List;
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
  private static final int MAX_ASIDE = 6;
  /** Each track may have as many; more than these only while the pool has memory. */
  private static final int USUAL_SOURCES = 1;
  private static final int USUAL_FILES = 1;
  /** The memory of sound or datagrams on their way to a file: a block that is filled, and often one that waits. */
  private static final int WAITING_BYTES = Blocks.LENGTH * 3 / 2;
  /** The approximate memory that each track takes, in bytes. */
  public static final int USUAL_BYTES = USUAL_SOURCES * Source.BYTES + USUAL_FILES * WAITING_BYTES;
  private static final int MAX_PAYLOAD = 2048;
  private static final int MAX_NOTES = 16;
  static final String PAUSE_NOTE = "time stamps stood still during a pause";

  /** The end of the remark on {@link #missing}. */
  public static final String NOT_WRITTEN = " KB could not be written: the disk was full or too slow";

  /** A source without packets for this time makes way for a new one. */
  private static final long QUIET_MILLIS = 1000;
  private static final long PAUSE_MILLIS = 800;
  /** A datagram other than RTP is compared with this number of earlier ones, because it may be delivered again. */
  private static final int COMPARED = 512;

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
  private final MediaPool pool;
  private final Consumer<PcapFile> begun;
  /** The last one is the one whose packet came last, at the latest when another source's packet came. */
  private final List<Source> sources = new ArrayList<>();
  private final List<AudioOutput> outputs = new ArrayList<>();
  private final Newcomers newcomers = new Newcomers();
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
  /** The packets of sources that sent no more than single ones among many others. */
  private long fleeting;

  /**
   * Makes a track without media.
   *
   * @param fileName the name of its files, without a number and an extension
   * @param shared has room for the first source
   * @param pool has the memory for what is not usual
   * @param begun is called for a new capture file, before the media is added
   */
  public Track(Store store, String fileName, Options options, SharedFile shared, MediaPool pool,
      Consumer<PcapFile> begun) {
    this.options = options;
    this.shared = shared;
    this.pool = pool;
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
    return lastSource == null ? 0 : lastSource.touch(step);
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
    if (lastSource != null) {
      lastSource.accept(packet);
    }
  }

  /**
   * Returns the source of a packet; null when it waits for a place, or was recorded before. A source continues from
   * another address when its next packet comes from there, or the first one after a loss. What is sent again can be
   * from an address that the source has left.
   */
  private Source source(RtpPacket packet) {
    Source source = find();
    if (source == null && find(other -> other.ssrc == lastSsrc && other.stream().hasReceived(packet)) != null) {
      return null;
    }
    if (source == null) {
      source = find(other -> other.ssrc == lastSsrc
          && (other.stream().isNext(packet) || other.stream().goesOnAfterLoss(packet)));
    }
    if (source == null && !hasPlace() && !makeRoom(packet)) {
      return null;
    }
    if (source == null) {
      source = new Source(this, lastSsrc, lastIdentity);
      source.acceptWaiting(newcomers.take(lastSsrc, lastIdentity));
    }
    source.identity = lastIdentity;
    sources.remove(source);
    sources.add(source);
    return source;
  }

  private boolean hasPlace() {
    return sources.size() < USUAL_SOURCES || sources.size() < MAX_SOURCES && pool.take(Source.BYTES);
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

  /** Keeps a frame whose content is not decoded in the capture file. */
  void store(Frame frame, String what, long time) {
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
   * Forgets a source, so that there is a place for that of a packet: one that is silent, that has sent fewer packets,
   * or that is recorded beside a voice which has fallen silent. So forged sources do not take the place of a voice,
   * whether they are many with a packet or two each, or a few that go on. Returns false when the new one waits.
   */
  private boolean makeRoom(RtpPacket packet) {
    note("many sources");
    long quiet = packet.time() - QUIET_MILLIS;
    Source least = Collections.min(sources, Comparator.comparing((Source source) -> source.isHeardSince(quiet))
        .thenComparing(source -> !source.isBeside()).thenComparing(source -> source.stream().received()));
    int count = newcomers.add(lastSsrc, lastIdentity, packet);
    boolean replacesVoice = count >= Source.PROBATION && least.isBeside()
        && sources.stream().allMatch(source -> source.isBeside() || !source.isHeardSince(quiet + PAUSE_MILLIS));
    if (least.isHeardSince(quiet) && count <= least.stream().received() && !replacesVoice) {
      return false;
    }
    sources.remove(least);
    leave(least);
    return true;
  }

  /** Ends a source and forgets it. */
  private void leave(Source source) {
    if (source.isFleeting()) {
      fleeting += source.stream().received();  // single packets are no voice
    } else {
      source.finish();
    }
    forget(source);
  }

  private void forget(Source source) {
    forgottenReceived += source.stream().received();
    forgottenLost += source.stream().lost();
    forgottenIgnored += source.ignored();
  }

  /** Writes the packets that are held back, and forgets the sources. No more packets follow. */
  public void finish() {
    newcomers.drain(Source.STRAGGLERS, packets -> {
      Source source = new Source(this, packets.get(0).ssrc(), 0);
      sources.add(source);
      packets.forEach(source::accept);
    });
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
    return forgottenReceived + sources.stream().mapToLong(source -> source.stream().received()).sum();
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
      lost += source.stream().lost();
    }
    return lost;
  }

  /** Adds the files that are kept beside the stereo file to a list. */
  public void addAside(List<StoredFile> files) {
    outputs.stream().filter(AudioOutput::isAside).forEach(output -> number(files, output.channel().file()));
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

  /** Returns the number of bytes that could not be written. */
  public long missing() {
    long missing = undecoded == null ? 0 : undecoded.missing();
    for (AudioOutput output : outputs) {
      missing += output.channel().missing();
    }
    return missing;
  }

  /** Returns remarks for the report. */
  public Set<String> notes() {
    long missing = missing();
    if (missing > 0) {
      note((missing >> 10) + 1 + NOT_WRITTEN);
    }
    if (forgottenIgnored > 0) {
      note(Text.count(forgottenIgnored, "packet") + " with the SSRC of the voice and other numbers ignored");
    }
    long cut = outputs.stream().mapToLong(AudioOutput::cutMillis).sum();
    if (cut > 0) {
      note(cut + " ms of sound are not in the stereo file: the delay of the network fell");
    }
    long unlisted = outputs.stream().mapToLong(AudioOutput::unlistedGaps).sum();
    if (unlisted > 0) {
      note(Text.count(unlisted, "further gap") + " with lost speech not listed");
    }
    if (outputs.stream().anyMatch(AudioOutput::hasPause)) {
      note(PAUSE_NOTE);
    }
    long few = fleeting + newcomers.ignored();
    if (few > 0) {
      note(Text.count(few, "packet") + " of sources with a packet or two ignored");
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
        .forEach(output -> parts.add(output.part(callStart,
            output.isAside() || isNamed.test(output.channel().file()))));
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
    return outputs.stream().filter(output -> !output.isAside())
        .flatMap(output -> output.stretches(callStart).stream()).toList();
  }

  /** Returns the files of the sound: a view. */
  List<AudioOutput> outputs() {
    return outputs;
  }

  /** Adds a packet of a pressed key. */
  void press(RtpPacket packet) {
    if (options.keepsDigits) {
      digits.accept(packet);
    }
  }

  /** Adds a remark for the report. */
  void note(String text) {
    if (notes.size() < MAX_NOTES) {
      notes.add(text);
    }
  }

  /** Opens a file for a codec; returns null when there are too many. */
  AudioOutput open(Codec codec, boolean isAside) {
    WavFile.Format format = format(codec);
    if (outputs.size() >= (isAside ? MAX_ASIDE : MAX_FILES)
        || outputs.size() >= USUAL_FILES && !pool.take(WAITING_BYTES)) {
      note("more sources than files");
      return null;
    }
    WavChannel channel = outputs.isEmpty() && !isAside ? shared.take(format) : null;
    AudioOutput output = new AudioOutput(channel != null ? channel : store.wav(fileName, format, 0).take(0),
        codec.name(), isAside);
    outputs.add(output);
    return output;
  }

  /** Returns the approximate memory that the track takes beyond the usual, in bytes. */
  long unusualBytes() {
    long bytes = newcomers.memory() + (long) Math.max(0, sources.size() - USUAL_SOURCES) * Source.BYTES;
    for (Source source : sources) {
      bytes += source.memory();
    }
    for (AudioOutput output : outputs) {
      bytes += output.memory();
    }
    int writing = Math.min(outputs.size(), sources.size());  // each source writes to one file at a time
    return bytes + (long) Math.max(0, writing - USUAL_FILES) * WAITING_BYTES;
  }

  /**
   * Gives back memory beyond the usual: the packets of newcomers are dropped, packets that wait are decided on now, and
   * the sources that have sent the least are forgotten until they send again, and long lists are thinned.
   */
  void giveBack() {
    note("attacked, or much was lost: the memory for packets that wait was used up");
    newcomers.clear();
    List<Source> least = sources.stream().sorted(Comparator.comparing(Source::isBeside)
        .thenComparing(source -> -source.stream().received())).skip(USUAL_SOURCES).toList();
    sources.removeAll(least);
    least.forEach(this::leave);
    sources.stream().filter(source -> !source.isFleeting()).forEach(Source::finish);
    outputs.forEach(AudioOutput::giveBack);
    lastSource = null;
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
      sources.add(Source.restore(this, in));
    }
  }

  /** Whether all sound of a restored state lies between two times, and the places in its files agree with them. */
  public boolean isWithin(long from, long to) {
    return outputs.stream().allMatch(output -> output.isWithin(from, to));
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
