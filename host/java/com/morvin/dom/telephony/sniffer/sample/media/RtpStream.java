package com.morvin.dom.telephony.sniffer.sample.media;

import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.Map;
import java.util.TreeMap;
import java.util.function.Consumer;

/**
 * Puts the packets of one RTP source in order. It drops duplicates, waits up to 16 packets for a missing one, and
 * counts lost packets. The first packets wait for each other, because a later one may have overtaken them.
 */
final class RtpStream {
  /** The number of packets that are held back while an earlier one is missing. */
  private static final int REORDER_DEPTH = 16;

  /** The number of packets that are waited for at the start, because a later one can come first. */
  private static final int START = 4;

  // RFC 3550, A.1: a larger jump is accepted when the next packet continues from it.
  private static final int MAX_DROPOUT = 3000;
  private static final int MAX_MISORDER = 100;

  /** The number of packets that are remembered. Another sniffer can deliver the same packet seconds later. */
  private static final int REMEMBERED = 512;
  /** Capture times that are further apart show that a clock was set. */
  private static final long MAX_BEHIND_MILLIS = 150_000;
  /** RTP timestamp units in a millisecond. */
  private static final int TICKS = 8;
  /** The most by which an outage differs from the jump of the timestamps. */
  private static final long MAX_CLOCK_MILLIS = 1000;

  private final TreeMap<Long, RtpPacket> early = new TreeMap<>();
  /** Sequence numbers and timestamps of the last packets. */
  private final long[] seen = new long[REMEMBERED];
  /** The size of {@code early}: a packet in order need not touch it. */
  private int waiting;
  private RtpPacket suspect;
  private long next = -1;
  /** The first number that was passed on; -1 before that. */
  private long first = -1;
  /** The time of capture of the last packet that was passed on. */
  private long lastTime;
  private long received;
  private long lost;

  /** Adds a packet and passes on the packets that are due, in order. A packet that is due at once is not copied. */
  void accept(RtpPacket packet, Consumer<RtpPacket> inOrder) {
    int sequence = packet.sequence();
    int slot = sequence % REMEMBERED;
    long identity = 1L << 48 | (long) sequence << 32 | packet.timestamp() & 0xffffffffL;
    if (seen[slot] == identity) {
      return;
    }
    if (waiting == 0 && first >= 0 && suspect == null && sequence == (next & 0xffff)) {
      seen[slot] = identity;
      received++;
      next++;
      lastTime = packet.time();
      inOrder.accept(packet);
      return;
    }
    if (next < 0) {
      next = 0x10000L + sequence;
    }
    int distance = (short) (sequence - (int) next);
    if (first < 0 && distance < 0 && distance >= -REORDER_DEPTH) {
      next += distance;  // the packets before it were overtaken
      distance = 0;
    }
    long behind = lastTime - packet.time();
    if (distance < -MAX_MISORDER && behind > 0 && behind < MAX_BEHIND_MILLIS) {
      return;  // another sniffer delivers it; a sender that has started over is later than its last packet
    }
    if (distance > MAX_DROPOUT || distance < -MAX_MISORDER) {
      if (suspect == null || sequence != (suspect.sequence() + 1 & 0xffff)) {
        suspect = packet.keep();
        return;
      }
      RtpPacket before = suspect;
      drain(inOrder);
      lost += lostInOutage(before, packet);
      next = 0x10000L + before.sequence();
      first = -1;
      accept(before, inOrder);
      distance = (short) (sequence - (int) next);
    }
    suspect = null;
    if (distance < 0 && next + distance < first) {
      seen[slot] = identity;
      lost++;  // it came after the first one was passed on, and is not recorded
    }
    if (distance < 0 || early.putIfAbsent(next + distance, packet.keep()) != null) {
      return;
    }
    waiting = early.size();
    seen[slot] = identity;
    received++;
    while (!early.isEmpty() && (early.firstKey() == next ? first >= 0 || waiting >= START : waiting > REORDER_DEPTH)) {
      release(inOrder);
    }
  }

  /** Whether a packet continues the stream without a gap. */
  boolean isNext(RtpPacket packet) {
    return next >= 0 && waiting == 0 && packet.sequence() == (next & 0xffff);
  }

  /**
   * Returns the number of packets that were lost before a larger jump; 0 when the sender has started over. After an
   * outage, the sequence numbers, the timestamps and the clock have moved on by the same time.
   */
  private long lostInOutage(RtpPacket first, RtpPacket second) {
    int step = second.timestamp() - first.timestamp();
    long last = seen[(int) (next - 1) & REMEMBERED - 1];
    if (step <= 0 || last >>> 32 != (0x10000 | next - 1 & 0xffff)) {
      return 0;
    }
    long ticks = first.timestamp() - (int) last & 0xffffffffL;
    long packets = ticks / step;
    boolean fits = ticks % step == 0 && (packets & 0xffff) == (first.sequence() - (int) next + 1 & 0xffff);
    return fits && Math.abs(first.time() - lastTime - ticks / TICKS) < MAX_CLOCK_MILLIS ? packets - 1 : 0;
  }

  long touch() {
    return next;
  }

  long touchSeen() {
    return seen[(int) next & REMEMBERED - 1];
  }

  /** Passes on all packets that are held back. */
  void drain(Consumer<RtpPacket> inOrder) {
    while (!early.isEmpty()) {
      release(inOrder);
    }
  }

  private void release(Consumer<RtpPacket> inOrder) {
    Map.Entry<Long, RtpPacket> earliest = early.pollFirstEntry();
    waiting = early.size();
    lost += earliest.getKey() - next;
    next = earliest.getKey() + 1;
    first = first < 0 ? earliest.getKey() : first;
    lastTime = earliest.getValue().time();
    inOrder.accept(earliest.getValue());
  }

  /** Returns the time of capture of the last packet that was passed on. */
  long lastTime() {
    return lastTime;
  }

  /** Returns the number of received packets without duplicates. */
  long received() {
    return received;
  }

  /** Returns the number of packets that never came or came too late. */
  long lost() {
    return lost;
  }

  void save(DataOutput out) throws IOException {
    out.writeLong(next);
    out.writeLong(first);
    out.writeLong(lastTime);
    out.writeLong(seen[(int) (next - 1) & REMEMBERED - 1]);
    out.writeLong(received);
    out.writeLong(lost);
    out.writeInt(early.size());
    for (Map.Entry<Long, RtpPacket> entry : early.entrySet()) {
      out.writeLong(entry.getKey());
      entry.getValue().save(out);
    }
  }

  void restore(DataInput in) throws IOException {
    next = in.readLong();
    first = in.readLong();
    lastTime = in.readLong();
    seen[(int) (next - 1) & REMEMBERED - 1] = in.readLong();
    received = in.readLong();
    lost = in.readLong();
    for (int count = in.readInt(); count > 0; count--) {
      early.put(in.readLong(), RtpPacket.restore(in));
    }
    waiting = early.size();
  }
}
