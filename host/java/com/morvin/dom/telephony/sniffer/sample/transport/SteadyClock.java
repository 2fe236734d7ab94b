package com.morvin.dom.telephony.sniffer.sample.transport;

import java.time.InstantSource;
import java.util.function.LongSupplier;

/**
 * A clock for time limits and for the times within a call. It shows the time of day when it is made, and is monotonic
 * from then on: a step of the time of day ends no call. Any thread may call any method.
 */
public final class SteadyClock {
  private static final long NANOS = 1_000_000;

  private final InstantSource timeOfDay;
  private final LongSupplier nanos;
  private final long start;
  private final long startNanos;

  /**
   * Makes a clock.
   *
   * @param nanos a monotonic time in nanoseconds, such as {@link System#nanoTime}
   */
  public SteadyClock(InstantSource timeOfDay, LongSupplier nanos) {
    this.timeOfDay = timeOfDay;
    this.nanos = nanos;
    start = timeOfDay.millis();
    startNanos = nanos.getAsLong();
  }

  /** Returns the clock of the system. */
  public static SteadyClock system() {
    return new SteadyClock(InstantSource.system(), System::nanoTime);
  }

  /** Returns the steady time, in milliseconds since 1970 if the time of day has not been set since. */
  public long millis() {
    return start + (nanos.getAsLong() - startNanos) / NANOS;
  }

  /** Returns the time of day in milliseconds since 1970. */
  public long timeOfDay() {
    return timeOfDay.millis();
  }

  /** Returns by how much the time of day has been set forward since the clock was made, in milliseconds. */
  public long skew() {
    return timeOfDay() - millis();
  }
}
