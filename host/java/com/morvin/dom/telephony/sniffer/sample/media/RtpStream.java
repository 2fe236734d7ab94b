package com.morvin.dom.telephony.sniffer.sample.media;

import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.Arrays;
import java.util.function.Consumer;
import java.util.function.Supplier;

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
  /** A packet from before a restart is older than the saved state by no more than this, by its timestamp: 30 s. */
  private static final int MAX_OLDER = 30_000 * RtpClock.TICKS;
  /** Capture times that are further apart show that a clock was set. */
  private static final long MAX_BEHIND_MILLIS = 150_000;
  /**
   * One packet in this number adjusts the clock once it is settled. The number is odd, so that the packets are of both
   * ways where packets take two ways in turn.
   */
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
  /** After this number of packets whose timestamps fit their lengths, the timestamps distinguish forged packets. */
  private static final int REGULAR = 16;
  private static final int MAX_REGULAR = 4 * REGULAR;
  /** In this time after a timely packet the clock of the sniffer does not show when a delayed one is due. */
  private static final long TIMELY_MILLIS = 1000;
  /** The most by which an outage differs from the jump of the timestamps. */
  private static final long MAX_CLOCK_MILLIS = 1000;

  /** The next number, the lost packets, the last timestamp and its step. */
  private record Before(long next, long lost, int timestamp, int step) {}

  private final EarlyPackets early = new EarlyPackets();
  /** Sequence numbers and timestamps of the last packets. */
  private final long[] seen = new long[REMEMBERED];
  /** The size of {@code early}: a packet in order need not touch it. */
  private int waiting;
  private RtpClock clock = new RtpClock();
  /** The clock before the last jumps. */
  private RtpClock clockBefore = clock;
  private final Probation probation;
  private long next = -1;
  /** The first number that was passed on; -1 before that. */
  private long first = -1;
  /** The first number after the saved state, and the timestamp of the packet before it; -1 without a restart. */
  private long restored = -1;
  private int restoredTimestamp;
  /** The time of capture of the last packet that was passed on. */
  private long lastTime;
  /** The time of the last packet that was not delayed; 0 before that. */
  private long timelyAt;
  /** The timestamp of the last packet with audio, and by how much it was later than the one before. */
  private int lastTimestamp;
  private int lastAdvance;
  /** By how much the timestamp rises from packet to packet; 0 when that is not known. */
  private int step;
  /** The timestamp that was due for the last packet, and whether it had that timestamp and the usual length. */
  private int dueTimestamp;
  private boolean wasExact = true;
  /** The number of such packets, up to a limit; fewer after others. Some senders have timestamps of no use. */
  private int regular;
  /** The same before the last packet. */
  private int regularBefore;
  private long received;
  private long lost;
  /** Packets with a number that another packet has taken: one of the two is forged. */
  private long contradicted;
  /** The state before the last jumps; null before the first one. */
  private Before before;
  /** The time of the last jump. */
  private long jumped;

  /**
   * Makes a stream without packets.
   *
   * @param writers returns what writes a long run of packets that are not the stream, or null
   */
  RtpStream(Supplier<Consumer<RtpPacket>> writers) {
    probation = new Probation(writers);
  }

  /** Adds a packet and passes on the packets that are due, in order. A packet that is due at once is not copied. */
  void accept(RtpPacket packet, Consumer<RtpPacket> inOrder) {
    int sequence = packet.sequence();
    int slot = sequence % REMEMBERED;
    long identity = identity(packet);
    if (seen[slot] == identity) {
      return;
    }
    if (waiting == 0 && first >= 0 && sequence == (next & 0xffff) && continues(packet)) {
      seen[slot] = identity;
      received++;
      next++;
      passOn(packet, inOrder);
    } else if (replaces(packet)) {
      seen[slot] = identity;
      contradicted++;
      int earlier = regularBefore;
      passOn(packet, inOrder);
      regular = earlier;
    } else if (!isSame(seen[slot], identity) || isTruer(packet)) {
      acceptOther(packet, identity, inOrder);
    } else {
      contradicted++;
    }
  }

  /** Accepts a packet that is not the next one. */
  private void acceptOther(RtpPacket packet, long identity, Consumer<RtpPacket> inOrder) {
    if (next < 0) {
      next = 0x10000L + packet.sequence();
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
   * Whether the packet with the next number can be the next one of the sender: its timestamp goes on, and it is not
   * early. A packet that follows exactly may be early, because the clock can be late after a time of much jitter.
   */
  private boolean continues(RtpPacket packet) {
    if (!timestampDecides(packet)) {
      return true;
    }
    int advance = packet.timestamp() - lastTimestamp;
    return advance == step ? !clock.isFarEarly(packet) : advance > 0 && !clock.isTooEarly(packet);
  }

  /** Whether the timestamp of a packet can show that it is not of the sender. */
  private boolean timestampDecides(RtpPacket packet) {
    return regular >= REGULAR && packet.codec().isAudio() && clock.isSettled(packet.time()) && !isOutOfTime(packet);
  }

  /** Whether the time of a packet does not show when it is due: the clock of its sniffer may be slow. */
  boolean isOutOfTime(RtpPacket packet) {
    return packet.isDelayed() && timelyAt > 0 && packet.time() - timelyAt < TIMELY_MILLIS;
  }

  /** Whether a packet has exactly the timestamp and the length that are due at a distance from the next one. */
  private boolean isExact(RtpPacket packet, int distance) {
    return packet.codec().isAudio() && packet.length() == step
        && packet.timestamp() - lastTimestamp == (distance + 1) * step;
  }

  /** Whether a packet has the number of the last one and is exactly what was due, while that one was not. */
  private boolean replaces(RtpPacket packet) {
    return !wasExact && waiting == 0 && first >= 0 && packet.sequence() == (next - 1 & 0xffff)
        && packet.timestamp() == dueTimestamp && packet.length() == step
        && (!clock.isSettled(packet.time()) || clock.isOnTime(packet));
  }

  /**
   * Whether a packet comes when it is due, and the stream is ahead of its time. After a jump this is not known, because
   * another sniffer can still deliver the packets before it.
   */
  private boolean isTruer(RtpPacket packet) {
    return packet.time() - jumped >= SETTLING_MILLIS && (isTruer(packet, clock) || isTruer(packet, clockBefore));
  }

  private boolean isTruer(RtpPacket packet, RtpClock by) {
    return by.isEarly(lastTimestamp, lastTime) && by.isOnTime(packet);
  }

  /** Whether a packet may be the next one of the stream, before or after others. */
  private boolean fits(RtpPacket packet, int distance) {
    if (distance > MAX_DROPOUT || distance < -MAX_MISORDER) {
      return false;
    }
    if (first < 0) {
      return true;
    }
    if (distance <= 0) {
      return distance == 0 ? continues(packet) : !timestampDecides(packet) || !clock.isOnTime(packet);
    }
    return (!timestampDecides(packet) || !clock.isEarly(packet) && isFarEnough(packet, distance))
        && hadTimeFor(distance, packet);
  }

  /** Whether the sender had the time for the packets before one. Otherwise it has skipped their numbers. */
  private boolean hadTimeFor(int distance, RtpPacket packet) {
    return distance <= REORDER_DEPTH || packet.time() - lastTime >= (long) distance * MIN_PACKET_MILLIS;
  }

  /**
   * Whether the timestamp has moved on at least as far as the number. The packets can have become shorter. Keys that
   * are sent beside the voice take numbers, but no time of it. Packets that wait for a lost one are among those that it
   * is ahead of.
   */
  private boolean isFarEnough(RtpPacket packet, int distance) {
    int least = Math.min(step, Math.max(packet.length(), MIN_PACKET_MILLIS * RtpClock.TICKS));
    int advance = packet.timestamp() - lastTimestamp;
    return !timestampDecides(packet) || advance >= (distance + 1) * least
        || distance <= 2 * REORDER_DEPTH && advance >= least && clock.isOnTime(packet);
  }

  private void insert(RtpPacket packet, int distance, long identity, Consumer<RtpPacket> inOrder) {
    int slot = packet.sequence() % REMEMBERED;
    if (distance < 0) {
      if (next + distance < first) {
        seen[slot] = identity;
        lost++;  // it came after the first one was passed on, and is not recorded
      } else if ((seen[slot] >>> 32 & 0xffff) == packet.sequence()) {
        contradicted++;
      }
      return;
    }
    RtpPacket other = early.get(next + distance);
    if (other != null) {
      contradicted++;
      if (!isExact(packet, distance) || isExact(other, distance)) {
        return;
      }
      received--;
    }
    early.put(next + distance, packet.keep());
    waiting = early.size();
    seen[slot] = identity;
    received++;
    while (waiting > 0 && (early.firstNumber() == next ? first >= 0 || waiting >= START : waiting > REORDER_DEPTH)) {
      release(inOrder);
    }
  }

  /** Whether packets on probation are the stream. */
  private boolean prevails(Probation.Run run) {
    RtpPacket packet = run.last();
    long heard = lastHeard();
    if (run.size() >= MIN_RUN && packet.time() - heard >= SILENCE_MILLIS) {
      if (!isRest(run)) {
        probation.leaveOutUntil(heard, run);
      }
      return run.size() >= MIN_RUN;
    }
    return run.size() >= MIN_RUN_ON_TIME && (isTruer(packet) || isBack(run))
        || run.size() >= MIN_RUN_IN_BURST && isBurst(run);
  }

  /** Whether packets are the next ones of the stream, which has come by a longer way and ends before them. */
  private boolean isRest(Probation.Run run) {
    int distance = distance(run.first());
    return distance <= REORDER_DEPTH && goesOn(run.first(), distance, step);
  }

  /** Whether a packet has the timestamp that is due at a distance from the next one. */
  private boolean goesOn(RtpPacket packet, int distance, int step) {
    return distance >= 0 && distance <= MAX_DROPOUT && packet.timestamp() - lastTimestamp == (distance + 1) * step;
  }

  /** Whether packets follow the stream after a gap, faster than in real time. */
  private boolean isBurst(Probation.Run run) {
    return run.isUninterrupted(received) && distance(run.first()) > 0 && !clock.isEarly(run.last())
        && isFarEnough(run.first(), distance(run.first())) && run.step() >= step / 2;
  }

  /** Whether packets continue the stream before the last jumps: its sender has not started over. */
  private boolean isBack(Probation.Run run) {
    if (before == null) {
      return false;
    }
    int gap = (short) (run.first().sequence() - (int) before.next);
    return gap >= 0 && gap <= MAX_DROPOUT && run.step() == before.step && clockBefore.isOnTime(run.last())
        && run.first().timestamp() - before.timestamp >= (gap + 1) * before.step;
  }

  /** Goes on with packets that were on probation. */
  private void follow(Probation.Run run, Consumer<RtpPacket> inOrder) {
    probation.remove(run);
    release(inOrder, early.size());
    boolean wasForged = before == null && isTruer(run.last());  // it was ahead of its time
    countLostBefore(run);
    before = wasForged ? null : before;
    next = 0x10000L + run.first().sequence();
    first = next;
    step = run.step() > 0 ? run.step() : step;
    lastTimestamp = run.first().timestamp() - step;
    wasExact = true;
    regular = isStill(run) ? 0 : regular;  // the timestamps are of no use any more
    setClock(run);
    run.packets().forEach(packet -> accept(packet, inOrder));
    probation.removeIf(packet -> seen[packet.sequence() % REMEMBERED] == identity(packet));
  }

  /** Whether the timestamps of a run have stopped rising. */
  private static boolean isStill(Probation.Run run) {
    return run.size() > 1 && run.first().timestamp() == run.last().timestamp();
  }

  /** Sets the clock anew, unless the one before the last jumps fits. That one stays: it may be the sender's. */
  private void setClock(Probation.Run run) {
    if (run.first().time() - jumped >= RtpClock.PATIENCE_MILLIS) {
      clockBefore = clock;
    }
    clock = clockBefore.isOnTime(run.last()) ? clockBefore.copy() : new RtpClock();
    run.packets().forEach(clock::follow);
    jumped = run.first().time();
  }

  private void countLostBefore(Probation.Run run) {
    int gap = distance(run.first());
    if (gap < 0 && gap >= -MAX_DROPOUT) {
      Arrays.fill(seen, 0);  // the numbers come again
    }
    if (isBack(run)) {
      lost = before.lost + next + gap - before.next;  // the jump was not that of the sender
      before = null;
      return;
    }
    if (goesOn(run.first(), gap, step) && clock.isOnTime(run.last())) {
      lost += gap;  // there was no jump: packets have overtaken many others
      return;
    }
    if (before == null || run.first().time() - jumped >= RtpClock.PATIENCE_MILLIS) {
      before = new Before(next, lost, lastTimestamp, step);
    }
    lost += gap > 0 && gap <= MAX_DROPOUT && hadTimeFor(gap, run.first()) ? gap : lostInOutage(run);
  }

  /**
   * Whether a packet came before it was due. False when that is not known.
   *
   * @param goesOn whether it goes on exactly: then it may be early, because the clock can be late
   */
  boolean isEarly(RtpPacket packet, boolean goesOn) {
    return isOutOfTime(packet) || (goesOn ? clock.isFarEarly(packet) : clock.isEarly(packet));
  }

  /** Whether the timestamp of a packet is later than those before the last jumps, or there was no jump. */
  boolean isSinceJump(RtpPacket packet) {
    return before == null || packet.timestamp() - before.timestamp > 0;
  }

  /** Whether the timestamps have fitted the lengths of the packets. */
  boolean isRegular() {
    return regular >= REGULAR;
  }

  /** Returns the sequence number of the next packet in order. */
  int next() {
    return (int) next & 0xffff;
  }

  /** Whether a packet was received before, by this recorder or before a restart: a sniffer has sent it again. */
  boolean hasReceived(RtpPacket packet) {
    return seen[packet.sequence() % REMEMBERED] == identity(packet) || wasReceivedBeforeRestart(packet);
  }

  /** Whether a packet is older than the saved state, which has none of the packets, only the last number. */
  private boolean wasReceivedBeforeRestart(RtpPacket packet) {
    int distance = (short) (packet.sequence() - (int) restored);
    int age = restoredTimestamp - packet.timestamp();
    boolean isRecent = restored >= 0 && next >= restored && next - restored < REMEMBERED;
    return isRecent && distance < 0 && distance >= -MAX_DROPOUT && age >= 0 && age <= MAX_OLDER;
  }

  /** Whether a packet continues the stream without a gap. */
  boolean isNext(RtpPacket packet) {
    return next >= 0 && waiting == 0 && packet.sequence() == (next & 0xffff);
  }

  /** Whether a packet continues the stream after a few lost ones, for which there was time since the last one. */
  boolean goesOnAfterLoss(RtpPacket packet) {
    int distance = distance(packet);
    int missing = waiting == 0 ? distance : distance - distance(early.last()) - 1;
    int usual = next == restored ? packet.length() : step;  // the saved state has no step
    long due = lastTime + (2L * distance + 1) * usual / (2 * RtpClock.TICKS);  // at the earliest
    return first >= 0 && packet.codec().isAudio() && missing >= 0 && missing <= REORDER_DEPTH
        && goesOn(packet, distance, usual) && packet.time() >= due
        && (!clock.isSettled(packet.time()) || clock.isOnTime(packet));
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

  /** Reads values that the next packet needs; see {@link Track#touch}. */
  long touch() {
    return next;
  }

  long touchSeen() {
    return seen[(int) next & REMEMBERED - 1];
  }

  /** Returns the approximate memory of the packets that are held back, in bytes. */
  long memory() {
    return (waiting == 0 ? 0 : early.memory()) + probation.memory();
  }

  /** Passes on all packets that are held back. */
  void drain(Consumer<RtpPacket> inOrder) {
    release(inOrder, early.size());
    Probation.Run run = probation.newest();
    if (run != null && run.size() >= MIN_RUN && isBurst(run)) {
      follow(run, inOrder);
      release(inOrder, early.size());
    }
    probation.drain();
  }

  private void release(Consumer<RtpPacket> inOrder, int count) {
    for (int i = 0; i < count; i++) {
      release(inOrder);
    }
  }

  private void release(Consumer<RtpPacket> inOrder) {
    long number = early.firstNumber();
    RtpPacket earliest = early.removeFirst();
    waiting = early.size();
    if (first >= 0 && !continues(earliest)) {
      received--;
      contradicted++;  // the packets before it have shown that it does not belong there
      return;
    }
    lost += number - next;
    next = number + 1;
    first = first < 0 ? number : first;
    passOn(earliest, inOrder);
  }

  private void passOn(RtpPacket packet, Consumer<RtpPacket> inOrder) {
    lastTime = packet.time();
    if (!packet.isDelayed()) {
      timelyAt = lastTime;
    }
    if (packet.codec().isAudio()) {
      noteTimestamp(packet);
    } else {
      dueTimestamp = lastTimestamp + step;
      wasExact = false;
    }
    inOrder.accept(packet);
  }

  private void noteTimestamp(RtpPacket packet) {
    int timestamp = packet.timestamp();
    int advance = timestamp - lastTimestamp;
    dueTimestamp = lastTimestamp + step;
    wasExact = advance == step && packet.length() == step;
    regularBefore = regular;
    regular = wasExact ? Math.min(regular + 1, MAX_REGULAR) : Math.max(regular - REGULAR, 0);
    if (!wasExact && advance > 0 && (advance == packet.length() || advance == lastAdvance)) {
      step = advance;
    }
    lastAdvance = advance;
    lastTimestamp = timestamp;
    if ((packet.sequence() % SAMPLED == 0 || !clock.isSettled(packet.time())) && !isOutOfTime(packet)) {
      clock.follow(packet);
    }
  }

  /** Returns the time of capture of the last packet that was passed on. */
  long lastTime() {
    return lastTime;
  }

  /** Returns the time of capture of the last packet, with those that wait for an earlier one. */
  long lastHeard() {
    return waiting == 0 ? lastTime : Math.max(lastTime, early.last().time());
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
    return probation.ignored() + contradicted;
  }

  void save(DataOutput out) throws IOException {
    out.writeLong(next);
    out.writeLong(first);
    out.writeLong(lastTime);
    out.writeLong(seen[(int) (next - 1) & REMEMBERED - 1]);
    out.writeLong(received);
    out.writeLong(lost);
    out.writeLong(ignored());
    early.save(out);
  }

  void restore(DataInput in) throws IOException {
    next = in.readLong();
    first = in.readLong();
    lastTime = in.readLong();
    seen[(int) (next - 1) & REMEMBERED - 1] = in.readLong();
    received = in.readLong();
    lost = in.readLong();
    probation.restore(in.readLong());
    early.restore(in);
    waiting = early.size();
    lastTimestamp = (int) seen[(int) (next - 1) & REMEMBERED - 1];
    restored = first < 0 ? -1 : next;
    restoredTimestamp = lastTimestamp;
  }
}
