package com.morvin.dom.telephony.sniffer.sample.media;

import com.morvin.dom.telephony.sniffer.sample.storage.WavFile;
import java.io.IOException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeSet;

/**
 * What one party of a call says: the RTP sources heard in that direction and the files they are written to.
 *
 * <p>Mostly that is one source and one file. When the source changes (a transfer, music on hold), the new one goes on
 * in the file of the one that fell silent. Sources that speak at the same time get a file each.
 */
public final class Track {
  // Bounds against hostile traffic; real calls stay far below them.
  private static final int MAX_SOURCES = 8;
  private static final int MAX_FILES = 8;
  private static final int MAX_PAYLOAD = 2048;

  /** How many packets of a new source wait for the decision whose file it gets. */
  private static final int PROBATION = 10;
  /** Packets of the old source that may still come after the first of the new one. */
  private static final int STRAGGLERS = 2;
  /** How far timestamps may lead the clock: so a forged one cannot fill the disk with silence. */
  private static final long MAX_LEAD_MILLIS = 10_000;
  private static final long MAX_CLOCK_GAP_MILLIS = 3_600_000;

  private static final int SAMPLES_PER_MILLI = WavFile.RATE / 1000;

  private final Path directory;
  private final String fileName;
  private final Map<Integer, Source> sources = new LinkedHashMap<>(16, 0.75f, true);
  private final List<Output> outputs = new ArrayList<>();
  private final Set<String> notes = new TreeSet<>();
  private boolean unwritable;
  private long firstArrival = -1;
  private long forgottenReceived;
  private long forgottenLost;

  public Track(Path directory, String fileName) {
    this.directory = directory;
    this.fileName = fileName;
  }

  /** Takes a packet as it arrives. */
  public void accept(RtpPacket packet, Codec codec, long now) {
    if (packet.length() > MAX_PAYLOAD) {
      note("oversized packets");
      return;
    }
    if (firstArrival < 0) {
      firstArrival = now;
    }
    Source source = sources.get(packet.ssrc());
    if (source == null) {
      makeRoom();
      source = new Source();
      sources.put(packet.ssrc(), source);
    }
    source.stream.accept(new RtpStream.Arrival(packet, codec, now), source::play);
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

  public void close() {
    sources.values().forEach(Source::finish);
    outputs.forEach(Output::close);
  }

  public long received() {
    return forgottenReceived + sources.values().stream().mapToLong(source -> source.stream.received()).sum();
  }

  public long lost() {
    return forgottenLost + sources.values().stream().mapToLong(source -> source.stream.lost()).sum();
  }

  /** When the first packet came, in milliseconds since 1970; -1 when none did. */
  public long firstArrival() {
    return firstArrival;
  }

  /** The files with their length in milliseconds. */
  public Map<Path, Long> recordings() {
    Map<Path, Long> recordings = new LinkedHashMap<>();
    outputs.forEach(output -> recordings.put(output.file.path(), output.file.samples() / SAMPLES_PER_MILLI));
    return recordings;
  }

  public Set<String> notes() {
    return notes;
  }

  private void note(String text) {
    if (notes.size() < 16) {
      notes.add(text);
    }
  }

  /** One source of RTP. */
  private final class Source {
    private final RtpStream stream = new RtpStream();
    private final List<RtpStream.Arrival> held = new ArrayList<>();
    private final Map<Output, Long> writtenBefore = new LinkedHashMap<>();
    private Output output;
    private int expectedTimestamp;

    void play(RtpStream.Arrival arrival) {
      if (!arrival.codec().isAudio() || arrival.codec().rate() != 8000) {
        if (arrival.codec().kind() == Codec.Kind.OTHER || arrival.codec().isAudio()) {
          note(arrival.codec().name() + " is not written as WAV");
        }
        return;
      }
      if (output != null && output.owner == this && !output.file.full()) {
        write(arrival);
        return;
      }
      if (held.isEmpty()) {
        outputs.forEach(other -> writtenBefore.put(other, other.packets));
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
      output = outputs.stream().filter(this::isAbandoned).findFirst().orElseGet(Track.this::open);
      if (output != null) {
        output.owner = this;
        expectedTimestamp = held.get(0).packet().timestamp() - output.gapUntil(held.get(0).time());
        held.forEach(this::write);
      }
      held.clear();
      writtenBefore.clear();
    }

    private boolean isAbandoned(Output other) {
      Long before = writtenBefore.get(other);
      return before != null && other.packets - before <= STRAGGLERS && !other.file.full();
    }

    private void write(RtpStream.Arrival arrival) {
      RtpPacket packet = arrival.packet();
      int gap = packet.timestamp() - expectedTimestamp;
      if (gap < 0 || gap > 0 && gap > output.maxGapAt(arrival.time())) {
        note("timestamp jumps");
        gap = output.gapUntil(arrival.time());
      }
      expectedTimestamp = packet.timestamp() + packet.length();
      output.write(gap, arrival);
    }
  }

  private Output open() {
    if (unwritable) {
      return null;
    }
    if (outputs.size() == MAX_FILES) {
      note("more sources than files");
      return null;
    }
    try {
      Output output = new Output(new WavFile(directory, fileName));
      outputs.add(output);
      return output;
    } catch (IOException e) {
      unwritable = true;
      note("cannot write a WAV file: " + e);
      return null;
    }
  }

  /** A file with the clock it is held against. */
  private final class Output {
    private final WavFile file;
    private Source owner;
    private long packets;
    private long firstArrival = -1;
    private long endOfAudio;
    private boolean broken;

    Output(WavFile file) {
      this.file = file;
    }

    /** Samples of silence between what was written last and now, by the clock. */
    int gapUntil(long now) {
      long millis = firstArrival < 0 ? 0 : Math.min(now - endOfAudio, MAX_CLOCK_GAP_MILLIS);
      return (int) Math.max(0, millis) * SAMPLES_PER_MILLI;
    }

    /** Samples of silence that timestamps may ask for. */
    long maxGapAt(long now) {
      long start = firstArrival < 0 ? now : firstArrival;
      return (now - start + MAX_LEAD_MILLIS) * SAMPLES_PER_MILLI - file.samples();
    }

    void write(int gap, RtpStream.Arrival arrival) {
      packets++;
      if (firstArrival < 0) {
        firstArrival = arrival.time();
      }
      endOfAudio = arrival.time() + arrival.packet().length() / SAMPLES_PER_MILLI;
      if (broken) {
        return;
      }
      try {
        file.silence(gap);
        RtpPacket packet = arrival.packet();
        short[] decoded = new short[packet.length()];
        for (int i = 0; i < decoded.length; i++) {
          decoded[i] = (arrival.codec().kind() == Codec.Kind.PCMA ? G711.A_LAW : G711.MU_LAW)[packet.bytes()[packet.offset() + i] & 255];
        }
        file.write(decoded);
      } catch (IOException e) {
        fail(e);
      }
    }

    void close() {
      try {
        file.close();
      } catch (IOException e) {
        fail(e);
      }
    }

    private void fail(IOException e) {
      broken = true;
      note("writing " + file.path().getFileName() + " failed: " + e.getMessage());
    }
  }
}
