package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import com.morvin.dom.telephony.sniffer.sample.transport.Wire;

/**
 * The use of a destination by one call: what the signalling says of it, and the media that the call has received there.
 *
 * <p>Several calls can claim a destination at the same time: a telephone calls again on the same ports, a call manager
 * relays media, or a message is forged. {@link Entry#choose} gives each frame to one of the claims. A claim knows for
 * this the stream that it has received last (its source and SSRC), when the signalling has ended or withdrawn the use,
 * and whether another call takes the stream over. The values are numbers, because each frame changes them.
 */
final class Claim {
  /** The pause after which media may go on, although the signalling has moved it or another call claims it. */
  static final long PAUSE_MILLIS = 60_000;
  private static final int RTP_HEADER = 12;
  /** The most by which numbers jump in a stream (RFC 3550, A.1). */
  private static final int MAX_DROPOUT = 3000;
  private static final int FIRST_RTCP = 192;
  private static final int LAST_RTCP = 223;
  /** While a stream continues at a destination of one call, its fit is computed once in this time. */
  private static final long CHECK_MILLIS = 1000;
  /** The packets that show that the media of an ended call goes on. Anyone can forge one. */
  private static final int RESUMING_PACKETS = 5;
  private static final long NEVER = Long.MIN_VALUE / 2;

  final Call call;
  final Endpoint endpoint;
  Call.Use use;
  /** When the signalling withdrew the destination. */
  Moment withdrawn;
  /** The steady time of the last frame. */
  private long last = NEVER;
  /** The stream that was received last, the steady time of its last frame, and how well its source fits the call. */
  private long source;
  private int ssrc;
  private short sequence;
  private long lastOfStream = NEVER;
  /** The steady time when the stream began; {@link #NEVER} when a restart does not know it. */
  private long began = NEVER;
  /** The packets that have resumed the stream after the end of the call, and the times of their first and last. */
  private int resuming;
  private long resumedAt;
  private long resumedUntil = NEVER;
  private int fit;
  /** See {@link Call.Use#trust}. */
  private int trust;
  /** The steady time after which the fit of the stream is computed again. */
  private long nextCheck = NEVER;

  Claim(Endpoint endpoint, Call.Use use) {
    this.endpoint = endpoint;
    call = use.call();
    this.use = use;
  }

  /** Continues what was saved before a restart. */
  void restore(MediaUse saved, Moment now) {
    last = Math.min(now.at(saved.last()).steady(), now.steady());
    lastOfStream = last;
    source = saved.source();
    ssrc = saved.ssrc();
    use.leg().mediaBefore(last);
  }

  MediaUse saved(Moment now) {
    return new MediaUse(endpoint, use.leg().id(), use.direction().turned(use.leg().isTurned()), source, ssrc,
        now.stamp() - (now.steady() - last));
  }

  /** Records a frame. A stream from a source that fits worse does not replace one that flows. */
  void heard(FrameCursor frame, int fit, int trust, Moment now) {
    use.setTrust(trust);
    if (fit >= this.fit || !isRecent(lastOfStream, now)) {
      began = beginOfStream(frame, now);
      source = frame.source();
      ssrc = ssrc(frame);
      sequence = sequence(frame);
      lastOfStream = now.steady();
      this.fit = fit;
      this.trust = trust;
      nextCheck = lastOfStream + CHECK_MILLIS;
    }
    last = now.steady();
  }

  /** Returns when the stream of a frame began. A pause ends it when the call may have ended before. */
  private long beginOfStream(FrameCursor frame, Moment now) {
    boolean goesOn = isStream(frame)
        && (isRecent(lastOfStream, now) || end(now) == null && use.leg().endSoFar(now) == null);
    return goesOn ? began : now.steady();
  }

  /** Records a frame of the stream that was received last. Returns false when {@link #heard} is needed. */
  boolean heardAgain(FrameCursor frame, Moment now) {
    if (now.steady() >= nextCheck || !isStream(frame)) {
      return false;
    }
    last = now.steady();
    lastOfStream = last;
    sequence = sequence(frame);
    use.setTrust(trust);
    return true;
  }

  /** Has the fit of the stream computed again: the signalling has changed. */
  void described() {
    nextCheck = NEVER;
  }

  /** Whether a frame continues the stream that was received last. That may have paused while the call goes on. */
  boolean isContinuedBy(FrameCursor frame, Moment now) {
    return isStream(frame)
        && now.steady() - lastOfStream < (isUsed() ? PAUSE_MILLIS : Leg.SILENCE_MILLIS);
  }

  /** Counts a frame that resumes the stream. Returns how long it has gone on; -1 while there are few packets. */
  long resume(Moment now) {
    if (!isRecent(resumedUntil, now)) {
      resuming = 0;
      resumedAt = now.steady();
    }
    resumedUntil = now.steady();
    resuming++;
    return resuming < RESUMING_PACKETS ? -1 : resumedUntil - resumedAt;
  }

  /** Whether a call that began or was answered after the end of this use claims its destination. */
  boolean isRivalledBy(Claim other, Moment now) {
    Moment end = end(now);
    Moment answer = other.call.lifetime().answer();
    return other != this && end != null && other.end(now) == null
        && (other.call.start().isAfter(end) || answer != null && answer.isAfter(end));
  }

  /**
   * Whether another call takes the stream of a frame over: it is answered, and this use ended before, or the stream
   * began after the start of the other call. A call that still rang then keeps its stream: the other one may be
   * forged. An end that waits for late media does not wait for the media of the other call.
   */
  boolean isSupersededBy(Claim other, FrameCursor frame, Moment now) {
    Moment answer = other.call.lifetime().answer();
    if (other == this || answer == null || other.end(now) != null) {
      return false;
    }
    Leg.Ending ending = use.leg().ending();
    Moment end = end(now) == null && ending != null && now.stamp() >= answer.stamp() ? ending.at() : end(now);
    Moment own = call.lifetime().answer();
    boolean rang = own != null && own.isAfter(other.call.start()) && use.leg().endSoFar(now) == null;
    return end != null && answer.isAfter(end)
        || !rang && beginOfStream(frame, now) >= other.call.start().steady();
  }

  /**
   * Whether RTP goes on in the stream that was received last, after a pause and after the end of its call. A packet
   * with an earlier number is a late one.
   */
  boolean isResumedBy(FrameCursor frame, Moment now) {
    return isStream(frame) && ssrc != 0 && now.steady() - lastOfStream >= Leg.SILENCE_MILLIS
        && (short) (sequence(frame) - sequence) > 0;
  }

  /** Whether no message has ended or withdrawn the use. */
  private boolean isUsed() {
    return withdrawn == null && use.leg().ending() == null;
  }

  /** Whether the call is answered, and its media flows or is awaited. */
  boolean isEstablished(Moment now) {
    return isUsed() && call.lifetime().answer() != null
        && (call.priority(now) > 0 || now.steady() - last < PAUSE_MILLIS);
  }

  /** Whether a frame was captured before the call, and is not of the stream that the call has received last. */
  boolean isAfter(FrameCursor frame, long captured) {
    return call.isAfter(captured) && !isStream(frame);
  }

  private boolean isStream(FrameCursor frame) {
    return source == frame.source() && ssrc == ssrc(frame);
  }

  /** Returns the time when the signalling ended the use; null while it has not. */
  Moment end(Moment now) {
    return use.leg().isHungUp(now) ? use.leg().ending().at() : withdrawn;
  }

  /** Returns when a message has ended or withdrawn the use, also if that awaits an answer; null when none has. */
  Moment hungUpAt() {
    Leg.Ending ending = use.leg().ending();
    return ending != null ? ending.at() : withdrawn;
  }

  /** Whether its call began after the other use was ended. */
  boolean isOfCallAfter(Claim other) {
    return call != other.call && other.hungUpAt() != null && call.start().isAfter(other.hungUpAt());
  }

  /** Whether RTP is not of the stream that was received last, by its SSRC or by its number. */
  boolean isOtherStream(FrameCursor frame) {
    return ssrc(frame) != 0 && (!isStream(frame)
        || sequence != 0 && Math.abs((short) (sequence(frame) - sequence)) > MAX_DROPOUT);
  }

  /** Returns the SSRC of RTP or the sender's SSRC of RTCP; 0 in other media. */
  private static int ssrc(FrameCursor frame) {
    byte[] bytes = frame.bytes();
    int datagram = frame.payload();
    if (frame.end() - datagram < RTP_HEADER || (bytes[datagram] & 0xc0) != 0x80) {
      return 0;
    }
    int type = bytes[datagram + 1] & 0xff;
    return Wire.i32(bytes, datagram + (type >= FIRST_RTCP && type <= LAST_RTCP ? 4 : 8));
  }

  private static short sequence(FrameCursor frame) {
    int at = frame.payload() + 2;
    return at + 2 > frame.end() ? 0 : (short) Wire.u16(frame.bytes(), at);
  }

  boolean hasMedia() {
    return last != NEVER;
  }

  /** Returns the steady time of the last frame. */
  long last() {
    return last;
  }

  boolean isFlowing(Moment now) {
    return isRecent(last, now);
  }

  /**
   * Whether media may go on after the signalling has withdrawn the destination. Soon after the answer it may begin,
   * when the answer was not the message that has withdrawn it.
   */
  boolean mayGoOn(Moment now) {
    return now.steady() - last < PAUSE_MILLIS || !use.stream().exists() && call.priority(now) == Call.ANSWERED_NOW
        && (withdrawn != null ? withdrawn : now).stamp() > call.lifetime().answer().stamp();
  }

  private static boolean isRecent(long steady, Moment now) {
    return now.steady() - steady < Leg.SILENCE_MILLIS;
  }
}
