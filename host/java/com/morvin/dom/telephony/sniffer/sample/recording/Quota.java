package com.morvin.dom.telephony.sniffer.sample.recording;

/**
 * Limits the number of reports of calls without media: a flood of forged calls must not fill the disk. A busy site
 * stays far below the limit.
 */
final class Quota {
  /** The number of reports in a second, in the long run. */
  static final int PER_SECOND = 20;
  /** The number of reports at once. */
  private static final int BURST = 2000;
  private static final long MILLIS = 1000 / PER_SECOND;

  /** The steady time when the reports that were allowed are used up at {@link #PER_SECOND}. */
  private long usedUntil = Long.MIN_VALUE / 2;
  private long refused;
  private long refusedBefore;
  private boolean exceeded;

  /** Whether another report may be written at a steady time. A report that may not is counted. */
  boolean allows(long now) {
    usedUntil = Math.max(usedUntil, now);
    if (usedUntil - now >= BURST * MILLIS) {
      refused++;
      return false;
    }
    usedUntil += MILLIS;
    return true;
  }

  /** Whether reports were refused between the last two calls of {@link #takeRefused}. */
  boolean isExceeded() {
    return exceeded;
  }

  /** Returns the number of refused reports once none was refused since the last call; 0 before that. */
  long takeRefused() {
    exceeded = refused > refusedBefore;
    long count = exceeded ? 0 : refused;
    refused -= count;
    refusedBefore = refused;
    return count;
  }
}
