package com.morvin.dom.telephony.sniffer.sample.media;

import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.List;
import java.util.function.Predicate;

/**
 * The packets of a stream that do not continue it (RFC 3550, A.1), in runs of rising numbers. They wait until it is
 * known whether the sender has started over, or somebody else has sent them with its SSRC and address.
 */
final class Probation {
  // Limits against hostile traffic.
  private static final int MAX_RUNS = 4;
  private static final int MAX_HELD = 64;
  /** The distance of numbers in a run: packets can get lost. */
  private static final int MAX_STEP = 4;
  private static final long MAX_PAUSE_MILLIS = 1000;

  /** Packets with rising numbers. */
  static final class Run {
    private final Deque<RtpPacket> packets = new ArrayDeque<>();
    private final long receivedBefore;

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
      return step <= MAX_STEP && packet.time() - last().time() < MAX_PAUSE_MILLIS;
    }
  }

  /** The run that has grown last is the last one. */
  private final List<Run> runs = new ArrayList<>(0);
  private long ignored;

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
      ignored += runs.remove(0).size();
    }
    if (isNew || run.last().sequence() != packet.sequence()) {
      run.packets.add(packet.keep());
    }
    if (run.size() > MAX_HELD) {
      run.packets.removeFirst();
      ignored++;
    }
    return run;
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
