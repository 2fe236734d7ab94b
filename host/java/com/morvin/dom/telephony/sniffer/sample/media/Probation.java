package com.morvin.dom.telephony.sniffer.sample.media;

import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.List;
import java.util.function.Consumer;
import java.util.function.Predicate;
import java.util.function.Supplier;

/**
 * The packets of a stream that do not continue it (RFC 3550, A.1), in runs of rising numbers. They wait until it is
 * known whether the sender has started over, or somebody else has sent them with its SSRC and address. A run that gets
 * too long to wait is written elsewhere: it may be the voice, and what is the stream may be forged.
 */
final class Probation {
  // Limits against hostile traffic.
  private static final int MAX_RUNS = 4;
  private static final int MAX_HELD = 64;
  /** The distance of numbers in a run: packets can get lost. */
  private static final int MAX_STEP = 4;
  /** The most by which timestamps rise from packet to packet: 60 ms. */
  private static final int MAX_ADVANCE = 60 * RtpClock.TICKS;
  private static final long MAX_PAUSE_MILLIS = 1000;

  /** Packets with rising numbers. */
  static final class Run {
    private final Deque<RtpPacket> packets = new ArrayDeque<>();
    private final long receivedBefore;
    /** Where a long run is written; null for others. */
    private Consumer<RtpPacket> writer;

    private Run(long receivedBefore) {
      this.receivedBefore = receivedBefore;
    }

    /** Returns the packets in their order. */
    Iterable<RtpPacket> packets() {
      return packets;
    }

    RtpPacket first() {
      return packets.getFirst();
    }

    RtpPacket last() {
      return packets.getLast();
    }

    int size() {
      return packets.size();
    }

    /** Returns the difference of the timestamps of two packets in sequence; 0 when there are no two. */
    int step() {
      return packets.stream().skip(1).findFirst().map(second -> (second.timestamp() - first().timestamp())
          / (second.sequence() - first().sequence() & 0xffff)).orElse(0);
    }

    /** Whether the stream has not gone on since the run began. */
    boolean isUninterrupted(long received) {
      return received == receivedBefore;
    }

    private boolean isContinuedBy(RtpPacket packet) {
      int step = packet.sequence() - last().sequence() & 0xffff;
      return step <= MAX_STEP && packet.time() - last().time() < MAX_PAUSE_MILLIS
          && (!packet.codec().isAudio() || isRegular(packet.timestamp() - last().timestamp(), step));
    }

    /** Whether the timestamps rise with the numbers: packets of others can have numbers that are near. */
    private boolean isRegular(int advance, int step) {
      int usual = step * step();
      return usual > 0 ? Math.abs(advance - usual) <= step() / 2 : advance >= 0 && advance <= step * MAX_ADVANCE;
    }
  }

  /** The run that has grown last is the last one. */
  private final List<Run> runs = new ArrayList<>(0);
  private final Supplier<Consumer<RtpPacket>> writers;
  private long ignored;

  /**
   * Makes an object without packets.
   *
   * @param writers returns what writes a long run, or null
   */
  Probation(Supplier<Consumer<RtpPacket>> writers) {
    this.writers = writers;
  }

  /**
   * Adds a packet.
   *
   * @param received the number of packets that the stream has received
   * @return its run
   */
  Run add(RtpPacket packet, long received) {
    Run run = runs.stream().filter(one -> one.isContinuedBy(packet)).findFirst().orElseGet(() -> new Run(received));
    boolean isNew = !runs.remove(run);
    runs.add(run);
    if (runs.size() > MAX_RUNS) {
      leaveOut(runs.remove(0));
    }
    if (isNew || run.last().sequence() != packet.sequence()) {
      run.packets.add(packet.keep());
    }
    if (run.size() > MAX_HELD) {
      run.writer = run.writer == null ? writers.get() : run.writer;
      leaveOutFirst(run);
    }
    return run;
  }

  /** Leaves the first packet of a run out of the stream: it is written elsewhere, or ignored. */
  private void leaveOutFirst(Run run) {
    RtpPacket packet = run.packets.removeFirst();
    if (run.writer == null) {
      ignored++;
    } else {
      run.writer.accept(packet);
    }
  }

  private void leaveOut(Run run) {
    while (run.size() > 0) {
      leaveOutFirst(run);
    }
  }

  /** Returns the approximate memory in bytes. */
  long memory() {
    long bytes = 0;
    for (Run run : runs) {
      bytes += RtpPacket.memory(run.packets);
    }
    return bytes;
  }

  /** Leaves all packets out of the stream. */
  void drain() {
    runs.forEach(this::leaveOut);
    runs.clear();
  }

  /** Leaves the packets of a run up to a time out of the stream: they came while it went on. */
  void leaveOutUntil(long time, Run run) {
    while (run.size() > 0 && run.first().time() < time) {
      leaveOutFirst(run);
    }
  }

  /** Removes a run, which goes on as the stream. */
  void remove(Run run) {
    runs.remove(run);
  }

  /** Removes packets: copies of those that go on as the stream. */
  void removeIf(Predicate<RtpPacket> isCopy) {
    runs.forEach(run -> run.packets.removeIf(isCopy));
    runs.removeIf(run -> run.packets.isEmpty());
  }

  /** Returns the run that has grown last; null when there is none. */
  Run newest() {
    return runs.isEmpty() ? null : runs.get(runs.size() - 1);
  }

  /** Returns the number of packets that turned out to be foreign, with those that still wait. */
  long ignored() {
    return ignored + runs.stream().mapToInt(Run::size).sum();
  }

  void restore(long count) {
    ignored = count;
  }
}
