package com.morvin.dom.telephony.sniffer.sample.transport;

/**
 * A frame as a transport delivers it.
 *
 * @param sniffer which of the transport's sniffers it came from
 * @param captured when it was captured, in milliseconds since 1970; 0 when that was not told, which means just now
 * @param number counts the frames of this transport; see {@link Transport#acknowledge}
 */
public record Received(Frame frame, int sniffer, long captured, long number) {
  /** The sniffer keeps frames for a minute at most; other times are those of a clock that is wrong. */
  private static final long MAX_AGE_MILLIS = 150_000;

  /** When it was captured, given the time of its arrival. */
  public long time(long arrival) {
    return captured > arrival - MAX_AGE_MILLIS && captured < arrival ? captured : arrival;
  }
}
