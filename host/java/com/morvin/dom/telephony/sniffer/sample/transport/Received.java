package com.morvin.dom.telephony.sniffer.sample.transport;

/**
 * A frame as a transport delivers it.
 *
 * @param sniffer the number of the sniffer that sent it; see {@link Transport}
 * @param captured the time of capture in milliseconds since 1970; 0 when it is not known, which means just now
 * @param number counts the frames of the transport; see {@link Transport#acknowledge}
 */
public record Received(Frame frame, int sniffer, long captured, long number) {
  /** The sniffer holds frames for at most a minute, so an older time comes from a wrong clock. */
  private static final long MAX_AGE_MILLIS = 150_000;

  /** Returns the time of capture if it is plausible, or else the time of arrival. */
  public long time(long arrival) {
    return captured > arrival - MAX_AGE_MILLIS && captured < arrival ? captured : arrival;
  }
}
