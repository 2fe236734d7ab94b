package com.morvin.dom.telephony.sniffer.sample.media;

import com.morvin.dom.telephony.sniffer.sample.storage.Encoding;
import com.morvin.dom.telephony.sniffer.sample.storage.WavChannel;
import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.function.Consumer;

/** One source of RTP of a {@link Track}: its packets in order, and the file that they are written to. */
final class Source {
  /** The number of packets of a new source before it is assigned to a file. */
  static final int PROBATION = 10;
  /** The most packets that are held back to find out why they are late. */
  private static final int MAX_LATE = 128;
  /** A pause is inserted when this number of packets agree on it: the time of capture of a packet can be missing. */
  private static final int AGREEING = 3;
  /** Packets that are late for this time stay late. */
  private static final long SETTLING_MILLIS = 500;
  private static final long MAX_BURST_MILLIS = 10_000;
  /** The number of packets of the old source that may come after the first packet of the new one. */
  static final int STRAGGLERS = 2;
  /** The most packets of a new source that wait until the packets of the old one have ended, on a longer way. */
  private static final int MAX_OVERLAP = 64;
  /** After this time without another voice a source that is recorded beside it takes its place. */
  private static final long QUIET_MILLIS = 1000;
  /** After this time it makes way no more. */
  private static final long PATIENCE_MILLIS = 5000;
  /** A source continues the file of one with another address after this time without its packets. */
  private static final long MIN_SILENCE_MILLIS = 100;
  /** After this number of packets whose timestamps fit their lengths, the timestamps of the source are trusted. */
  private static final int TRUSTED = 16;
  private static final int MAX_FITTING = 10 * TRUSTED;
  /** After this number of equal pauses the timestamps rise faster than the sound, as with a clock of 16 kHz. */
  private static final int EVEN = 8;
  /** Timestamps that a sender takes from its clock jitter: two packets seem to overlap by up to this time. */
  private static final int MAX_OVERLAPPING = 20 * RtpClock.TICKS;
  /** How early and how late the packet is that takes back what was written in its place. */
  private static final long EARLY_MILLIS = 60;
  /** As many runs wait at a time. */
  private static final int MAX_BRANCHES = 4;
  /** Approximate memory without packets: mostly the numbers of the last ones. */
  static final int BYTES = 5_000;
  private static final int TICKS = RtpClock.TICKS;

  final int ssrc;
  /** Distinguishes sources with the same SSRC; see {@link Track#accept}. */
  long identity;
  private final Track track;
  /** Whether it has the SSRC and the address of the voice. Then it never takes the place of the voice. */
  private final boolean isBranch;
  /** Whether it sends beside the voice, so that it may be forged. It does not continue the file of the voice. */
  private boolean isAside;
  /** Whether it has begun beside another source: it makes way for that one. */
  private boolean yields;
  private boolean hasWaited;
  private final RtpStream stream;
  private final Consumer<RtpPacket> player = this::play;
  private final List<RtpPacket> held = new ArrayList<>();
  /** Whether there are any in {@code held}: a packet in time need not touch it. */
  private boolean holds;
  /** Packets with timestamps ahead of their time, until others continue them. */
  private final List<RtpPacket> ahead = new ArrayList<>(0);
  private boolean isAhead;
  private final Map<AudioOutput, Long> writtenBefore = new LinkedHashMap<>();
  private final List<Source> branches = new ArrayList<>(0);
  private G722 g722;
  private AudioOutput output;
  private int savedOutput;
  private int expectedTimestamp;
  /** The number of packets whose timestamps have fitted the lengths of those before; fewer after a jump. */
  private int fitting;
  /** The last pause between two packets that were not lost, and the number of packets in a row that agree on it. */
  private long evenPause;
  private int even;
  /** What was in the file already when the source was restored; null when no packet can be there any more. */
  private Overlap overlap;
  private long lostBefore;
  private long ignored;

  Source(Track track, int ssrc, long identity) {
    this(track, ssrc, identity, false);
  }

  private Source(Track track, int ssrc, long identity, boolean isBranch) {
    this.track = track;
    this.isBranch = isBranch;
    isAside = isBranch;
    stream = new RtpStream(isBranch ? () -> null : this::branch);
    this.ssrc = ssrc;
    this.identity = identity;
    noteWritten();
  }

  RtpStream stream() {
    return stream;
  }

  /** Adds the first packets, which have waited for a place. */
  void acceptWaiting(List<RtpPacket> packets) {
    hasWaited = !packets.isEmpty();
    packets.forEach(this::accept);
  }

  /** Adds a packet. Packets may come out of order. */
  void accept(RtpPacket packet) {
    stream.accept(packet, player);
  }

  /** Whether it is recorded beside the voice, or not at all. */
  boolean isBeside() {
    return output == null || isAside;
  }

  /** Whether a packet has come since a time. */
  boolean isHeardSince(long time) {
    return stream.lastHeard() > time;
  }

  /** Whether it has sent no more than single packets. */
  boolean isFleeting() {
    return output == null && held.size() <= STRAGGLERS;
  }

  /** Returns the number of packets that are not of the sender, although they have its SSRC and address. */
  long ignored() {
    return stream.ignored() + ignored;
  }

  /** Reads the values that the next packet needs; see {@link Track#touch}. */
  long touch(int step) {
    if (output == null) {
      return 0;
    }
    return switch (step) {
      case 0 -> expectedTimestamp;
      case 1 -> stream.touch() + output.touch();
      case 2 -> stream.touchSeen() + output.channel().touch();
      default -> output.channel().touchBlock();
    };
  }

  /** Returns what writes a run of packets that are not the stream. */
  private Consumer<RtpPacket> branch() {
    track.note("a second stream with the SSRC of the voice has a file of its own");
    Source branch = new Source(track, ssrc, identity, true);
    branches.add(branch);
    if (branches.size() > MAX_BRANCHES) {
      branches.remove(0).finish();
    }
    return branch::accept;
  }

  private void noteWritten() {
    track.outputs().forEach(other -> writtenBefore.put(other, other.packets()));
  }

  private void play(RtpPacket packet) {
    switch (packet.codec().kind()) {
      case COMFORT_NOISE -> { }
      case TELEPHONE_EVENT -> track.press(packet);
      case OTHER -> track.store(packet.frame(), packet.codec().name(), packet.time());
      default -> playAudio(packet);
    }
  }

  private void playAudio(RtpPacket packet) {
    if (overlap != null && isInFile(packet)) {
      return;
    }
    if (yields && output != null) {
      changePlace(packet);
    }
    if (output != null && output.isOwnedBy(this) && output.channel().rate() == packet.codec().rate()
        && !output.channel().full()) {
      playInTime(packet);
      return;
    }
    if (held.isEmpty() && (output != null || writtenBefore.isEmpty())) {
      noteWritten();
    }
    hold(packet);
    if (track.outputs().isEmpty() || isAside || held.size() >= PROBATION && !mayFollow()) {
      assignOutput();
    }
  }

  /** Whether another source, which sends at the same time, may end soon. One of many sources does not wait for it. */
  private boolean mayFollow() {
    return !hasWaited && held.size() < MAX_OVERLAP && overlaps() && isAnotherHeard();
  }

  /** Whether another voice has sent at the same time as this source. */
  private boolean overlaps() {
    return track.outputs().stream().anyMatch(other -> !other.isAside() && isInUse(other)
        && !(other.owner() instanceof Source writer && writer != this && writer.yields));
  }

  /** Whether another voice was heard a short time before the last packets of this source, or later. */
  private boolean isAnotherHeard() {
    int last = held.size() - 1;
    return isAnotherHeardSince(Math.min(held.get(last).time() - MIN_SILENCE_MILLIS,
        held.get(Math.max(0, last - AGREEING + 1)).time()));
  }

  private boolean isAnotherHeardSince(long time) {
    return track.outputs().stream().anyMatch(other -> isOfAnother(other)
        && ((Source) other.owner()).stream.lastTime() > time);
  }

  /** Whether a file is that of a voice which another source writes at present. */
  private boolean isOfAnother(AudioOutput other) {
    return !other.isAside() && other.owner() instanceof Source writer && writer != this && writer.output == other;
  }

  /**
   * Moves a source that has begun beside another one. It takes the place of the voice when that has fallen silent, with
   * a file of its own, and makes way when that goes on.
   */
  private void changePlace(RtpPacket packet) {
    boolean moves = isAside ? !isBranch && !isAnotherHeardSince(packet.time() - QUIET_MILLIS)
        : track.outputs().stream().anyMatch(other -> isOfAnother(other) && written(other) >= PROBATION);
    if (moves) {
      if (output.isOwnedBy(this)) {
        writeHeld();
      }
      isAside = !isAside;
      output = null;
      noteWritten();
    } else if (!isAside && !isAnotherHeardSince(packet.time() - PATIENCE_MILLIS)) {
      yields = false;
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
   * Writes a packet unless its time and its timestamp differ. A packet that is much later than its timestamp says waits
   * for the next ones: either those before it were held up, and then the next ones come in a burst; or the timestamps
   * stood still during a pause, and then the next ones are as late.
   */
  private void playInTime(RtpPacket packet) {
    int pause = pauseBefore(packet);
    long delay = output.delay(pause / TICKS, packet.time());
    if (pause > 0 && delay <= -AudioOutput.PAUSE_MILLIS && !stream.isOutOfTime(packet)) {
      holdAhead(packet);
      return;
    }
    if (isAhead) {
      ignoreAhead();
    }
    if (delay < AudioOutput.PAUSE_MILLIS || pause < 0) {
      if (holds) {
        writeHeld();
      }
      write(packet);
      return;
    }
    hold(packet);
    if (held.size() >= AGREEING && packet.time() - held.get(0).time() >= SETTLING_MILLIS
        && (held.size() > MAX_LATE || stayLate(held))) {
      insertPause();
    } else if (held.size() > MAX_LATE) {
      write(held.remove(0));
    }
  }

  private void hold(RtpPacket packet) {
    held.add(packet.keep());
    holds = true;
  }

  /**
   * Holds a packet with a timestamp ahead of its time. The silence before it is written when the next packets continue
   * it. Otherwise one forged packet could fill seconds of the file.
   */
  private void holdAhead(RtpPacket packet) {
    if (isAhead && !isNear(ahead.get(ahead.size() - 1), packet)) {
      ignoreAhead();
    }
    ahead.add(packet.keep());
    isAhead = true;
    if (ahead.size() >= AGREEING) {
      if (holds) {
        writeHeld();
      }
      writeAhead();
    }
  }

  /** Whether a packet follows another one without a long pause. */
  private static boolean isNear(RtpPacket packet, RtpPacket next) {
    int advance = next.timestamp() - packet.timestamp();
    return advance > 0 && advance <= AudioOutput.PAUSE_MILLIS * TICKS;
  }

  private void writeAhead() {
    ahead.forEach(this::write);
    ahead.clear();
    isAhead = false;
  }

  /** Leaves out packets that nothing has confirmed, unless the timestamps of the sender are of no use anyway. */
  private void ignoreAhead() {
    if (fitting >= TRUSTED) {
      ignored += ahead.size();
    } else {
      ahead.forEach(this::writeWithoutPause);
    }
    ahead.clear();
    isAhead = false;
  }

  private void writeWithoutPause(RtpPacket packet) {
    expectedTimestamp = packet.timestamp();
    write(packet);
  }

  private int pauseBefore(RtpPacket packet) {
    return packet.timestamp() - expectedTimestamp;
  }

  private long delay(RtpPacket packet) {
    return output.delay(pauseBefore(packet) / TICKS, packet.time());
  }

  /** Whether packets came much faster than they were sent: they were held up, as in an outage of a link. */
  private static boolean cameInBurst(List<RtpPacket> packets) {
    RtpPacket first = packets.get(0);
    RtpPacket last = packets.get(packets.size() - 1);
    return (last.timestamp() - first.timestamp()) / TICKS > 2 * (last.time() - first.time());
  }

  /** Whether late packets stay as late or get later. With much jitter most are followed by one that is less late. */
  private boolean stayLate(List<RtpPacket> late) {
    long least = Long.MAX_VALUE;
    int staying = 0;
    for (int i = late.size() - 1; i >= 0; i--) {
      long delay = delay(late.get(i));
      least = Math.min(least, delay);
      staying += delay - least <= AudioOutput.JITTER_MILLIS ? 1 : 0;
    }
    return 2 * staying >= late.size();
  }

  /** Places the late packets where they were captured. */
  private void insertPause() {
    track.note("time stamps stood still during a pause");
    expectedTimestamp -= (int) held.stream().mapToLong(this::delay).min().orElse(0) * TICKS;
    writeHeld();
  }

  private void writeHeld() {
    held.forEach(this::write);
    held.clear();
    holds = false;
  }

  /** Returns the approximate memory of the packets that are held back, in bytes. */
  long memory() {
    long bytes = stream.memory() + (holds ? RtpPacket.memory(held) : 0) + (isAhead ? RtpPacket.memory(ahead) : 0);
    for (Source branch : branches) {
      bytes += BYTES + branch.memory();
    }
    return bytes;
  }

  /** Writes the packets that are held back. */
  void finish() {
    stream.drain(player);
    boolean owns = output != null && output.isOwnedBy(this);
    if (!held.isEmpty() && owns) {
      if (held.size() < AGREEING || cameInBurst(held)) {
        writeHeld();
      } else {
        insertPause();
      }
    } else if (!held.isEmpty()) {
      assignOutput();
    }
    if (isAhead && output != null && output.isOwnedBy(this)) {
      expectedTimestamp = ahead.get(0).timestamp();  // nothing has confirmed the silence before them
      writeAhead();
    }
    branches.forEach(Source::finish);
    ignored += branches.stream().mapToLong(Source::ignored).sum();
    branches.clear();
  }

  /** Assigns the source to a file: that of a source that has fallen silent, or else a new one. */
  private void assignOutput() {
    RtpPacket first = held.get(0);
    int rate = first.codec().rate();
    boolean overlaps = overlaps();
    yields |= overlaps;
    isAside |= overlaps && (hasWaited || isAnotherHeard());
    output = track.outputs().stream().filter(other -> other.isAside() == isAside && isAbandoned(other, rate))
        .findFirst().orElseGet(() -> track.open(first.codec(), isAside));
    List<RtpPacket> ready = List.copyOf(held);
    held.clear();
    holds = false;
    noteWritten();
    if (output != null) {
      output.setOwner(this);
      expectedTimestamp = first.timestamp() - (int) output.pauseUntil(earliest(ready)) * TICKS;
      write(first);
      ready.stream().skip(1).filter(packet -> packet.codec().rate() == rate).forEach(this::playInTime);
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
    return (!yields || other.owner() == this) && writtenBefore.containsKey(other) && !isInUse(other)
        && !other.channel().full() && other.channel().rate() == rate;
  }

  /** Whether another source has sent to a file at the same time as this one. */
  private boolean isInUse(AudioOutput other) {
    return written(other) > STRAGGLERS || isInterrupted(other)
        || held.stream().anyMatch(packet -> packet.time() < other.endTime() - AudioOutput.PAUSE_MILLIS);
  }

  /** Returns the number of packets in a file since the writing to it was noted. */
  private long written(AudioOutput other) {
    return other.packets() - writtenBefore.getOrDefault(other, 0L);
  }

  /** Whether a burst from another address, or of packets that have waited, came while a source writes to a file. */
  private boolean isInterrupted(AudioOutput other) {
    return other.owner() instanceof Source writer && writer != this && (writer.identity != identity || hasWaited)
        && held.get(held.size() - 1).time() - writer.stream.lastTime() < MIN_SILENCE_MILLIS;
  }

  private void write(RtpPacket packet) {
    long pause = pauseBefore(packet);
    if (pause < 0 && takesPlace(packet) && !stream.isSinceJump(packet)) {
      ignored++;  // it would take the place of packets from before those that it came with
      return;
    }
    boolean missing = stream.lost() > lostBefore;
    int start = packet.timestamp();
    if (pause == 0) {
      fitting = Math.min(fitting + 1, MAX_FITTING);
    } else if (pause < 0 && pause >= -MAX_OVERLAPPING && !missing && !takesPlace(packet)) {
      start = expectedTimestamp;  // the next timestamps may be later again
      pause = 0;
    } else if (pause > 0 ? pause > output.maxPauseAt(packet.time()) * TICKS : !takesPlace(packet)) {
      track.note("timestamp jumps");
      pause = (fitting >= TRUSTED ? output.pauseByClock(packet.time()) : output.pauseUntil(packet.time())) * TICKS;
      fitting = Math.max(0, fitting - TRUSTED);
    }
    if (isTooFast(pause, missing)) {
      track.note("timestamps rise faster than the sound");
      pause = output.pauseUntil(packet.time()) * TICKS;
    }
    lostBefore = stream.lost();
    expectedTimestamp = start + packet.length();
    output.begin(pause * (packet.codec().rate() / 1000) / TICKS, missing, packet.time(),
        stream.isEarly(packet, pause == 0 && !missing));
    writeSamples(packet, output.channel());
  }

  /** Whether there is the same pause after each packet: then it is none. */
  private boolean isTooFast(long pause, boolean missing) {
    even = pause == evenPause && !missing ? Math.min(even + 1, EVEN) : 0;
    evenPause = pause;
    return pause > 0 && even == EVEN;
  }

  /**
   * Whether a packet that comes in time takes the place of what was written there. Packets of the sender do not
   * overlap, so that was forged: a packet longer than those before and after it, for example.
   */
  private boolean takesPlace(RtpPacket packet) {
    long delay = delay(packet);
    return fitting >= TRUSTED && stream.isRegular() && delay >= -EARLY_MILLIS && delay < AudioOutput.PAUSE_MILLIS;
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
    out.writeInt(output != null && output.isOwnedBy(this) ? track.outputs().indexOf(output) : -1);
    out.writeInt(overlap == null ? expectedTimestamp : overlap.knownTimestamp());
    out.writeLong(lostBefore);
    out.writeLong(evenPause);
    out.writeByte(even);
    out.writeInt(held.size());
    for (RtpPacket packet : held) {
      packet.save(out);
    }
  }

  /** Makes a source with a saved state. {@link #resume} follows. */
  static Source restore(Track track, DataInput in) throws IOException {
    Source source = new Source(track, in.readInt(), in.readLong());
    source.stream.restore(in);
    source.savedOutput = in.readInt();
    source.expectedTimestamp = in.readInt();
    source.lostBefore = in.readLong();
    source.evenPause = in.readLong();
    source.even = in.readUnsignedByte();
    for (int count = in.readInt(); count > 0; count--) {
      source.hold(RtpPacket.restore(in));
    }
    return source;
  }

  /** Goes on after a restart. The files are open by now. */
  void resume() throws IOException {
    if (savedOutput >= 0) {
      output = track.outputs().get(savedOutput);
      output.setOwner(this);
      overlap = output.beginOverlap(stream.next(), expectedTimestamp);
      held.removeIf(overlap::holds);
      holds = !held.isEmpty();
      expectedTimestamp = overlap.endTimestamp();
      isAside = output.isAside();
      yields = isAside;
    }
    noteWritten();
  }
}
