package com.morvin.dom.telephony.sniffer.sample.service;

/** The least of some ages in the last one to two minutes. Ages and times are in milliseconds. */
final class LeastAge {
  private static final long WINDOW_MILLIS = 60_000;

  private long windowStart;
  private long least = Long.MAX_VALUE;
  private long leastBefore = Long.MAX_VALUE;

  /** Adds an age. Returns the least one. */
  long add(long age, long now) {
    if (now - windowStart >= WINDOW_MILLIS) {
      leastBefore = now - windowStart < 2 * WINDOW_MILLIS ? least : Long.MAX_VALUE;
      least = Long.MAX_VALUE;
      windowStart = now;
    }
    least = Math.min(least, age);
    return Math.min(least, leastBefore);
  }
}
