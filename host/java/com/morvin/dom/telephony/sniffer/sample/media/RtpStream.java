package com.morvin.dom.telephony.sniffer.sample.media;

import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.Arrays;
import java.util.Map;
import java.util.TreeMap;
import java.util.function.Consumer;

/**
 * Puts the packets of one RTP source in order. It drops duplicates, waits up to 16 packets for a missing one, and
 * counts lost packets. The first packets wait for each other, because a later one may have overtaken them.
 *
 * <p>Anyone can send packets with the SSRC and the address of the source. Those whose numbers or timestamps do not fit
 * are on probation: they become the stream when it has fallen silent, or when it is ahead of its time and they are not.
 */
final class RtpStream {
  /** The number of packets that are held back while an earlier one is missing. */
  private static final int REORDER_DEPTH = 16;

  /** The number of packets that are waited for at the start, because a later one can come first. */
  private static final int START = 4;

  // RFC 3550, A.1: the limits of a jump.
  private static final int MAX_DROPOUT = 3000;
  private static final int MAX_MISORDER = 100;

  /** The number of packets that are remembered. Another sniffer can deliver the same packet seconds later. */
  private static final int REMEMBERED = 512;
  /** Capture times that are further apart show that a clock was set. */
  private static final long MAX_BEHIND_MILLIS = 150_000;
  /** The packets that set the clock: one in 16. */
  private static final int SAMPLED = 15;
  /** The least time that a lost packet stands for. */
  private static final int MIN_PACKET_MILLIS = 5;
  /** A stream without packets for this time is silent. Packets on probation then need a second one (RFC 3550). */
  private static final long SILENCE_MILLIS = 100;
  private static final int MIN_RUN = 2;
  /** The packets that prevail against a stream that is ahead of its time. */
  private static final int MIN_RUN_ON_TIME = 3;
  private static final long SETTLING_MILLIS = 200;
  /** The packets after a gap that come in a burst, as from a stalled link. */
  private static final int MIN_RUN_IN_BURST = 32;
  /** The most by which an outage differs from the jump of the timestamps. */
  private static final long MAX_CLOCK_MILLIS = 1000;

  private final TreeMap<Long, RtpPacket> early = new TreeMap<>();
  /** Sequence numbers and timestamps of the last packets. */
  private final long[] seen = new long[REMEMBERED];
  /** The size of {@code early}: a packet in order need not touch it. */
  private int waiting;
  private RtpClock clock = new RtpClock();
  /** The clock before the last jumps. */
  private RtpClock clockBefore = clock;
  private final Probation probation = new Probation();
  private long next = -1;
  /** The first number that was passed on; -1 before that. */
  private long first = -1;
  /** The time of capture of the last packet that was passed on. */
  private long lastTime;
  private long received;
  private long lost;
  /** The next number and the lost packets before the last jump, and its time; -1 before that. */
  private long nextBefore = -1;
  private long lostBefore;
  private long jumped;

  /** Adds a packet and passes on the packets that are due, in order. A packet that is due at once is not copied. */
  void accept(RtpPacket packet, Consumer<RtpPacket> inOrder) {
    int sequence = packet.sequence();
    int slot = sequence % REMEMBERED;
    long identity = identity(packet);
    if (seen[slot] == identity || isSame(seen[slot], identity) && !isTruer(packet)) {
      return;
    }
    if (waiting == 0 && first >= 0 && sequence == (next & 0xffff)) {
      seen[slot] = identity;
      received++;
      next++;
      lastTime = packet.time();
      if ((sequence & SAMPLED) == 0) {
        clock.follow(packet);
      }
      inOrder.accept(packet);
      return;
    }
    if (next < 0) {
      next = 0x10000L + sequence;
    }
    int distance = distance(packet);
    if (first < 0 && distance < 0 && distance >= -REORDER_DEPTH) {
      next += distance;  // the packets before it were overtaken
      distance = 0;
    }
    long behind = lastTime - packet.time();
    if (distance < -MAX_MISORDER && behind > 0 && behind < MAX_BEHIND_MILLIS) {
      return;  // it was delivered before: a sender that has started over is later than its last packet
    }
    if (fits(packet, distance)) {
      insert(packet, distance, identity, inOrder);
    } else {
      Probation.Run run = probation.add(packet, received);
      if (prevails(run)) {
        follow(run, inOrder);
      }
    }
  }

  /** Returns the number, the timestamp and a trace of the payload. It is not 0. */
  private static long identity(RtpPacket packet) {
    return (long) packet.trace() << 49 | 1L << 48 | (long) packet.sequence() << 32 | packet.timestamp() & 0xffffffffL;
  }

  /** Whether two packets have the same number and timestamp. Their payloads differ when one is forged. */
  private static boolean isSame(long identity, long other) {
    return (identity ^ other) << 15 == 0;
  }

  private int distance(RtpPacket packet) {
    return (short) (packet.sequence() - (int) next);
  }

  /**
   * Whether a packet comes when it is due, and the stream is ahead of its time. After a jump this is not known, because
   * another sniffer can still deliver the packets before it.
   */
  private boolean isTruer(RtpPacket packet) {
    return packet.time() - jumped >= SETTLING_MILLIS && (isTruer(packet, clock) || isTruer(packet, clockBefore));
  }

  private boolean isTruer(RtpPacket packet, RtpClock by) {
    return by.isEarly((int) seen[(int) (next - 1) & REMEMBERED - 1], lastTime) && by.isOnTime(packet);
  }

  /** Whether a packet may be the next one of the stream, before or after others. */
  private boolean fits(RtpPacket packet, int distance) {
    if (distance > MAX_DROPOUT || distance < -MAX_MISORDER) {
      return false;
    }
    if (first < 0 || distance == 0) {
      return true;
    }
    return distance < 0 ? !clock.isOnTime(packet) : !clock.isEarly(packet)
        && (distance <= REORDER_DEPTH || packet.time() - lastTime >= (long) distance * MIN_PACKET_MILLIS);
  }

  private void insert(RtpPacket packet, int distance, long identity, Consumer<RtpPacket> inOrder) {
    int slot = packet.sequence() % REMEMBERED;
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

  /** Whether packets on probation are the stream. */
  private boolean prevails(Probation.Run run) {
    RtpPacket packet = run.last();
    long heard = waiting == 0 ? lastTime : Math.max(lastTime, early.lastEntry().getValue().time());
    return run.size() >= MIN_RUN && packet.time() - heard >= SILENCE_MILLIS
        || run.size() >= MIN_RUN_ON_TIME && isTruer(packet)
        || run.size() >= MIN_RUN_IN_BURST && isBurst(run);
  }

  /** Whether packets follow the stream after a gap, faster than in real time. */
  private boolean isBurst(Probation.Run run) {
    return run.isUninterrupted(received) && distance(run.first()) > 0 && !clock.isEarly(run.last());
  }

  /** Goes on with packets that were on probation. */
  private void follow(Probation.Run run, Consumer<RtpPacket> inOrder) {
    probation.remove(run);
    release(inOrder, early.size());
    countLostBefore(run);
    next = 0x10000L + run.first().sequence();
    first = -1;
    setClock(run);
    run.packets().forEach(packet -> accept(packet, inOrder));
    probation.removeIf(packet -> seen[packet.sequence() % REMEMBERED] == identity(packet));
  }

  /** Sets the clock anew, unless the one before the last jumps fits. That one stays: it may be the sender's. */
  private void setClock(Probation.Run run) {
    if (run.first().time() - jumped >= RtpClock.PATIENCE_MILLIS) {
      clockBefore = clock;
    }
    clock = clockBefore.isOnTime(run.last()) ? clockBefore : new RtpClock();
    run.packets().forEach(clock::follow);
    jumped = run.first().time();
  }

  private void countLostBefore(Probation.Run run) {
    int gap = distance(run.first());
    if (gap < 0 && gap >= -MAX_DROPOUT) {
      Arrays.fill(seen, 0);  // the numbers come again
    }
    long back = next + gap - nextBefore;
    if (nextBefore >= 0 && gap < 0 && back >= 0 && back <= MAX_DROPOUT) {
      lost = lostBefore + back;  // the jump was not that of the sender
      nextBefore = -1;
      return;
    }
    nextBefore = next;
    lostBefore = lost;
    lost += gap > 0 && gap <= MAX_DROPOUT ? gap : lostInOutage(run);
  }

  /** Returns the sequence number of the next packet in order. */
  int next() {
    return (int) next & 0xffff;
  }

  /** Whether a packet continues the stream without a gap. */
  boolean isNext(RtpPacket packet) {
    return next >= 0 && waiting == 0 && packet.sequence() == (next & 0xffff);
  }

  /**
   * Returns the number of packets that were lost before a larger jump; 0 when the sender has started over. After an
   * outage, the sequence numbers, the timestamps and the clock have moved on by the same time.
   */
  private long lostInOutage(Probation.Run run) {
    RtpPacket first = run.first();
    int step = run.step();
    long last = seen[(int) (next - 1) & REMEMBERED - 1];
    if (step <= 0 || (last >>> 32 & 0x1ffff) != (0x10000 | next - 1 & 0xffff)) {
      return 0;
    }
    long ticks = first.timestamp() - (int) last & 0xffffffffL;
    long packets = ticks / step;
    boolean fits = ticks % step == 0 && (packets & 0xffff) == (first.sequence() - (int) next + 1 & 0xffff);
    return fits && Math.abs(first.time() - lastTime - ticks / RtpClock.TICKS) < MAX_CLOCK_MILLIS ? packets - 1 : 0;
  }

  long touch() {
    return next;
  }

  long touchSeen() {
    return seen[(int) next & REMEMBERED - 1];
  }

  /** Passes on all packets that are held back. No more packets follow. */
  void drain(Consumer<RtpPacket> inOrder) {
    release(inOrder, early.size());
    Probation.Run run = probation.newest();
    if (run != null && run.size() >= MIN_RUN && isBurst(run)) {
      follow(run, inOrder);
      release(inOrder, early.size());
    }
  }

  private void release(Consumer<RtpPacket> inOrder, int count) {
    for (int i = 0; i < count; i++) {
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
    if ((next & SAMPLED) == 1) {
      clock.follow(earliest.getValue());
    }
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

  /** Returns the number of packets that are not of the sender, although they have its SSRC and address. */
  long ignored() {
    return probation.ignored();
  }

  void save(DataOutput out) throws IOException {
    out.writeLong(next);
    out.writeLong(first);
    out.writeLong(lastTime);
    out.writeLong(seen[(int) (next - 1) & REMEMBERED - 1]);
    out.writeLong(received);
    out.writeLong(lost);
    out.writeLong(ignored());
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
    probation.restore(in.readLong());
    for (int count = in.readInt(); count > 0; count--) {
      early.put(in.readLong(), RtpPacket.restore(in));
    }
    waiting = early.size();
  }
}
