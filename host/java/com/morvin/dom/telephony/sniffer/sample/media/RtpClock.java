package com.morvin.dom.telephony.sniffer.sample.media;

/**
 * When the packets of a stream are due, by their timestamps. A packet can be late, but never early: one that is early
 * was not sent by a telephone in real time.
 */
final class RtpClock {
  /** RTP timestamp units in a millisecond. They are the same for G.722, which has twice the samples (RFC 3551). */
  static final int TICKS = 8;
  /** The jitter that the clock takes for no difference. */
  private static final int EARLY = 60 * TICKS;
  private static final int LATE = 100 * TICKS;
  /** A stream that is off the clock for this time has set its timestamps anew. */
  static final long PATIENCE_MILLIS = 10_000;
  /** At first the clock follows earlier packets: those before them were held up. */
  private static final long SETTLING_MILLIS = 1_000;
  private static final int NEAR = 200 * TICKS;
  private static final int FAR = 1000 * TICKS;

  /** The time at which a timestamp of 0 is due, in units of timestamps. */
  private int base;
  /** When {@link #base} was set anew; 0 before the first packet. */
  private long setAt;
  private long startedAt;
  /** Since when no packet has been on time; 0 when the last one was. */
  private long offSince;

  /** Returns a clock that shows the same and is adjusted separately. */
  RtpClock copy() {
    RtpClock copy = new RtpClock();
    copy.base = base;
    copy.setAt = setAt;
    copy.startedAt = startedAt;
    copy.offSince = offSince;
    return copy;
  }

  /** Adjusts the clock to a packet of the stream. Once it is settled, a few packets in a second are enough. */
  void follow(RtpPacket packet) {
    if (!packet.codec().isAudio()) {
      return;
    }
    int delay = delay(packet.timestamp(), packet.time());
    if (setAt == 0 || offSince > 0 && packet.time() - offSince >= patience(packet)) {
      base += delay;
      startedAt = setAt == 0 ? packet.time() : startedAt;
      setAt = packet.time();
      offSince = 0;
    } else if (delay <= LATE && delay >= (packet.time() - setAt < SETTLING_MILLIS ? -FAR : -EARLY)) {
      base += delay > 0 ? delay / 32 : delay;
      offSince = 0;
    } else if (offSince == 0) {
      offSince = packet.time();
    }
  }

  /** The first packets can be late by seconds, when the recorder was busy. */
  private long patience(RtpPacket packet) {
    return packet.time() - startedAt < PATIENCE_MILLIS ? SETTLING_MILLIS : PATIENCE_MILLIS;
  }

  private int delay(int timestamp, long time) {
    return (int) (time * TICKS) - timestamp - base;
  }

  /** Whether the clock is known well: the first packets can be late. */
  boolean isSettled(long time) {
    return setAt > 0 && time - setAt >= SETTLING_MILLIS;
  }

  /** Whether a packet came before it was due. False when that is not known. */
  boolean isEarly(RtpPacket packet) {
    return packet.codec().isAudio() && isEarly(packet.timestamp(), packet.time());
  }

  /** Whether a timestamp came before it was due. */
  boolean isEarly(int timestamp, long time) {
    return isSettled(time) && delay(timestamp, time) < -EARLY;
  }

  /** Whether a packet came earlier than much jitter explains. False when that is not known. */
  boolean isTooEarly(RtpPacket packet) {
    return isSettled(packet.time()) && delay(packet.timestamp(), packet.time()) < -NEAR;
  }

  /** Whether a packet came so early that no jitter explains it. False when that is not known. */
  boolean isFarEarly(RtpPacket packet) {
    return isSettled(packet.time()) && delay(packet.timestamp(), packet.time()) < -FAR;
  }

  /** Whether a packet came when it was due. False when that is not known. */
  boolean isOnTime(RtpPacket packet) {
    int delay = delay(packet.timestamp(), packet.time());
    return isSettled(packet.time()) && packet.codec().isAudio() && delay >= -EARLY && delay <= LATE;
  }
}
