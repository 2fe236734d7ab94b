package com.morvin.dom.telephony.sniffer.sample.media;

import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.KeptFiles;
import com.morvin.dom.telephony.sniffer.sample.storage.PcapFile;
import com.morvin.dom.telephony.sniffer.sample.storage.StereoFile;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.storage.StoredFile;
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

/**
 * What one party of a call says: the RTP sources heard in that direction and the files they are written to.
 *
 * <p>Mostly that is one source and one file. When the source changes (a transfer, music on hold), the new one goes on
 * in the file of the one that fell silent. Sources that speak at the same time get a file each. What is not decoded is
 * kept as it came.
 */
public final class Track {
  // Bounds against hostile traffic; real calls stay far below them.
  private static final int MAX_SOURCES = 8;
  private static final int MAX_FILES = 8;
  private static final int MAX_PAYLOAD = 2048;
  private static final int MAX_NOTES = 16;

  /** How many packets of a new source wait for the decision whose file it gets. */
  private static final int PROBATION = 10;
  /** Packets of the old source that may still come after the first of the new one. */
  private static final int STRAGGLERS = 2;
  /** Datagrams that are no RTP are compared with as many before, since two sniffers may see them. */
  private static final int COMPARED = 8;
  /** Units of timestamps in a millisecond; G.722 has the same, although it has twice the samples (RFC 3551). */
  private static final int TICKS = 8;

  private final Store store;
  private final String fileName;
  private final Map<Integer, Source> sources = new LinkedHashMap<>(16, 0.75f, true);
  private final List<Audio> outputs = new ArrayList<>();
  private final Set<String> notes = new TreeSet<>();
  private final Digits digits = new Digits();
  private final int[] recent = new int[COMPARED];
  private PcapFile undecoded;
  private String undecodedCodec = "";
  private long undecodedFirst;
  private long undecodedLast;
  private long forgottenReceived;
  private long forgottenLost;

  public Track(Store store, String fileName) {
    this.store = store;
    this.fileName = fileName;
  }

  /** Takes a packet of RTP as it arrives. */
  public void accept(Frame frame, RtpPacket packet, Codec codec, long time) {
    if (packet.length() > MAX_PAYLOAD) {
      note("oversized packets");
      return;
    }
    Source source = sources.get(packet.ssrc());
    if (source == null) {
      makeRoom();
      source = new Source();
      sources.put(packet.ssrc(), source);
    }
    source.stream.accept(new Arrival(packet, codec, time, frame), source::play);
  }

  /** Takes a datagram that is no RTP. */
  public void keep(Frame frame, String what, long time) {
    int hash = Arrays.hashCode(frame.payload());
    if (Arrays.stream(recent).noneMatch(other -> other == hash)) {
      recent[(int) (forgottenReceived++ % COMPARED)] = hash;
      store(frame, what, time);
    }
  }

  private void store(Frame frame, String what, long time) {
    if (undecoded == null) {
      undecoded = store.pcap(fileName, null);
      undecodedCodec = what;
      undecodedFirst = time;
    }
    undecodedLast = Math.max(undecodedLast, time);
    note(what + " is not decoded: kept as a pcap file");
    undecoded.write(frame, time);
  }

  /** Forgets the source that has been silent for longest when there are too many. */
  private void makeRoom() {
    if (sources.size() == MAX_SOURCES) {
      Source oldest = sources.remove(sources.keySet().iterator().next());
      oldest.finish();
      forgottenReceived += oldest.stream.received();
      forgottenLost += oldest.stream.lost();
      note("many sources");
    }
  }

  /** No more packets come: what was held back is written. */
  public void finish() {
    sources.values().forEach(Source::finish);
    flush();
  }

  /** Hands what has been recorded to the disk. */
  public void flush() {
    files().forEach(StoredFile::flush);
  }

  public long received() {
    return forgottenReceived + sources.values().stream().mapToLong(source -> source.stream.received()).sum();
  }

  public long lost() {
    return forgottenLost + sources.values().stream().mapToLong(source -> source.stream.lost()).sum();
  }

  /** Its files, in a fixed order. */
  public List<StoredFile> files() {
    List<StoredFile> files = new ArrayList<>();
    outputs.forEach(output -> files.add(output.file()));
    if (undecoded != null) {
      files.add(undecoded);
    }
    return files;
  }

  public Set<String> notes() {
    long missing = files().stream().mapToLong(StoredFile::missing).sum();
    if (missing > 0) {
      note((missing >> 10) + 1 + " KB could not be written: the disk was full or too slow");
    }
    return notes;
  }

  /** What is known of it, when its files have been written. */
  public CallReport.Voice report(long callStart) {
    List<CallReport.Part> parts = new ArrayList<>();
    outputs.stream().filter(output -> output.file().path() != null).forEach(output -> parts.add(output.part(callStart)));
    if (undecoded != null && undecoded.path() != null) {
      parts.add(new CallReport.Part(undecoded.fileName(), undecodedCodec, (undecodedFirst - callStart) / 1000.0,
          (undecodedLast - undecodedFirst) / 1000.0, List.of()));
    }
    parts.sort(Comparator.comparingDouble(CallReport.Part::offset));
    return new CallReport.Voice(received(), lost(), parts, digits.pressed().stream()
        .map(digit -> new CallReport.Digit((digit.time() - callStart) / 1000.0, String.valueOf(digit.key()))).toList());
  }

  /** What of it is sound, for the file with both directions. */
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
    private final RtpStream stream = new RtpStream();
    private final Decoder decoder = new Decoder();
    private final List<Arrival> held = new ArrayList<>();
    private final Map<Audio, Long> writtenBefore = new LinkedHashMap<>();
    private Audio output;
    private int expectedTimestamp;
    private long lostBefore;

    void play(Arrival arrival) {
      switch (arrival.codec().kind()) {
        case COMFORT_NOISE -> { }
        case TELEPHONE_EVENT -> digits.accept(arrival);
        case OTHER -> store(arrival.frame(), arrival.codec().name(), arrival.time());
        default -> playAudio(arrival);
      }
    }

    private void playAudio(Arrival arrival) {
      if (output != null && output.belongsTo(this) && output.file().rate() == arrival.codec().rate()
          && !output.file().full()) {
        write(arrival);
        return;
      }
      if (held.isEmpty()) {
        outputs.forEach(other -> writtenBefore.put(other, other.packets()));
      }
      held.add(arrival);
      if (outputs.isEmpty() || held.size() == PROBATION) {
        settle();
      }
    }

    void finish() {
      stream.drain(this::play);
      if (!held.isEmpty()) {
        settle();
      }
    }

    /** Finds a file for the packets held: that of a source that has fallen silent meanwhile, or else a new one. */
    private void settle() {
      Arrival first = held.get(0);
      int rate = first.codec().rate();
      output = outputs.stream().filter(other -> isAbandoned(other, rate)).findFirst()
          .orElseGet(() -> open(first.codec()));
      List<Arrival> ready = List.copyOf(held);
      held.clear();
      writtenBefore.clear();
      if (output != null) {
        output.giveTo(this);
        expectedTimestamp = first.packet().timestamp() - (int) output.pauseUntil(first.time()) * TICKS;
        ready.stream().filter(arrival -> arrival.codec().rate() == rate).forEach(this::write);
      }
    }

    private boolean isAbandoned(Audio other, int rate) {
      Long before = writtenBefore.get(other);
      return before != null && other.packets() - before <= STRAGGLERS && !other.file().full()
          && other.file().rate() == rate;
    }

    private void write(Arrival arrival) {
      RtpPacket packet = arrival.packet();
      long pause = packet.timestamp() - expectedTimestamp;
      if (pause < 0 || pause > 0 && pause > output.maxPauseAt(arrival.time()) * TICKS) {
        note("timestamp jumps");
        pause = output.pauseUntil(arrival.time()) * TICKS;
      }
      boolean missing = stream.lost() > lostBefore;
      lostBefore = stream.lost();
      expectedTimestamp = packet.timestamp() + packet.length();
      short[] samples = decoder.decode(packet, arrival.codec());
      output.write(pause * (arrival.codec().rate() / 1000) / TICKS, missing, samples, arrival.time());
    }

    void save(DataOutput out) throws IOException {
      stream.save(out);
      out.writeInt(output != null && output.belongsTo(this) ? outputs.indexOf(output) : -1);
      out.writeInt(expectedTimestamp);
      out.writeLong(lostBefore);
      out.writeInt(held.size());
      for (Arrival arrival : held) {
        arrival.save(out);
      }
    }

    void restore(DataInput in) throws IOException {
      stream.restore(in);
      int index = in.readInt();
      expectedTimestamp = in.readInt();
      if (index >= 0) {
        output = outputs.get(index);
        output.giveTo(this);
        expectedTimestamp += (int) output.more() * TICKS;
      }
      lostBefore = in.readLong();
      for (int count = in.readInt(); count > 0; count--) {
        held.add(Arrival.restore(in));
      }
      outputs.forEach(other -> writtenBefore.put(other, other.packets()));
    }
  }

  private Audio open(Codec codec) {
    if (outputs.size() == MAX_FILES) {
      note("more sources than files");
      return null;
    }
    Audio output = new Audio(store.wav(fileName, codec.rate()), codec.name());
    outputs.add(output);
    return output;
  }

  /** Writes down what it takes to go on after a restart, besides the content of {@link #files}. */
  public void save(DataOutput out) throws IOException {
    out.writeLong(forgottenReceived);
    out.writeLong(forgottenLost);
    out.writeInt(notes.size());
    for (String note : notes) {
      out.writeUTF(note);
    }
    digits.save(out);
    out.writeInt(outputs.size());
    for (Audio output : outputs) {
      output.save(out);
    }
    out.writeBoolean(undecoded != null);
    out.writeUTF(undecodedCodec);
    out.writeLong(undecodedFirst);
    out.writeLong(undecodedLast);
    out.writeInt(sources.size());
    for (Map.Entry<Integer, Source> source : sources.entrySet()) {
      out.writeInt(source.getKey());
      source.getValue().save(out);
    }
  }

  /** Goes on where another one was saved; the files come in their order. */
  public void restore(DataInput in, KeptFiles files) throws IOException {
    forgottenReceived = in.readLong();
    forgottenLost = in.readLong();
    for (int count = in.readInt(); count > 0; count--) {
      notes.add(in.readUTF());
    }
    digits.restore(in);
    for (int count = in.readInt(); count > 0; count--) {
      outputs.add(Audio.restore(in, (rate, samples) -> files.wav(fileName, rate, samples)));
    }
    if (in.readBoolean()) {
      undecoded = files.pcap(fileName);
    }
    undecodedCodec = in.readUTF();
    undecodedFirst = in.readLong();
    undecodedLast = in.readLong();
    for (int count = in.readInt(); count > 0; count--) {
      int ssrc = in.readInt();
      Source source = new Source();
      sources.put(ssrc, source);
      source.restore(in);
    }
  }
}
