package com.morvin.dom.telephony.sniffer.sample.signalling;

/**
 * A moment on two clocks. Time limits use only the steady clock, so that a step of the time of day ends no call.
 *
 * @param steady milliseconds of a clock that never steps; its zero has no meaning
 * @param stamp milliseconds since 1970, by the time of day or, of a redelivered frame, by the time of capture
 */
public record Moment(long steady, long stamp) {
  /** Returns the milliseconds since an earlier moment. */
  long since(Moment earlier) {
    return steady - earlier.steady;
  }

  /** Returns this moment or another one, whichever is later; the other one may be null. */
  Moment latest(Moment other) {
    return other == null || other.steady < steady ? this : other;
  }
}
