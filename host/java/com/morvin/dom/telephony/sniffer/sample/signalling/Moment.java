package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;

/**
 * A moment on two clocks. Time limits use the first one, which does not depend on the delay of frames and stops while
 * no frame can be received. Reports and recordings use the second one. A step of the time of day changes neither.
 *
 * @param steady milliseconds of the service; zero has no meaning
 * @param stamp milliseconds since 1970 by the {@link SteadyClock}, of a frame the time of capture; when the transport
 *     redelivers, by the clock of the sniffer
 */
public record Moment(long steady, long stamp) {
  /** Returns the moment with another stamp, which is as far from this one on both clocks. */
  public Moment at(long other) {
    return new Moment(steady - (stamp - other), other);
  }

  /** Returns the milliseconds since an earlier moment. */
  long since(Moment earlier) {
    return steady - earlier.steady;
  }

  /** Whether this moment is later. Frames that are delivered again have one steady time, and the stamps decide. */
  boolean isAfter(Moment other) {
    return steady != other.steady ? steady > other.steady : stamp > other.stamp;
  }

  /** Returns the later one of this moment and another one, which may be null. */
  Moment latest(Moment other) {
    return other == null || other.steady < steady ? this : other;
  }
}
