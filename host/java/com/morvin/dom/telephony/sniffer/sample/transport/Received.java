package com.morvin.dom.telephony.sniffer.sample.transport;

/**
 * A frame as a transport delivers it.
 *
 * @param sniffer the number of the sniffer that sent it; see {@link Transport}
 * @param captured the time of capture in milliseconds since 1970; 0 when it is not known, which means just now
 * @param number counts the frames of the transport; see {@link Transport#acknowledge}
 * @param time the time of capture by the {@link SteadyClock}; when the transport redelivers, by the sniffer's clock
 */
public record Received(Frame frame, int sniffer, long captured, long number, long time) {
  /** The sniffer holds frames for at most a minute, so an older time comes from a wrong clock. */
  private static final long MAX_AGE_MILLIS = 150_000;

  /** Makes a frame whose time is that of its capture by the sniffer's clock. */
  public Received(Frame frame, int sniffer, long captured, long number) {
    this(frame, sniffer, captured, number, captured);
  }

  /** Returns the frame as read at this moment: captured at the stated time if that is plausible, or else now. */
  public Received readBy(SteadyClock clock) {
    long age = clock.timeOfDay() - captured;
    return new Received(frame, sniffer, captured, number,
        clock.millis() - (captured > 0 && age > 0 && age < MAX_AGE_MILLIS ? age : 0));
  }
}
