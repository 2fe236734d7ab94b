package com.morvin.dom.telephony.sniffer.sample.transport;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.InstantSource;
import java.util.function.LongSupplier;

/**
 * A clock for time limits and for the times within a call. It shows the time of day when it is made, and is monotonic
 * from then on: a step of the time of day ends no call. Any thread may call any method.
 */
public final class SteadyClock {
  private static final long NANOS = 1_000_000;
  private static final Path BOOT_ID = Path.of("/proc/sys/kernel/random/boot_id");
  private static final int THIS_BOOT = bootId();

  /**
   * A time that another process can compare with its own, also when the time of day has been set meanwhile.
   *
   * @param timeOfDay milliseconds since 1970
   * @param sinceBoot milliseconds of the monotonic clock, which on Linux begins with the machine
   * @param boot identifies the start of the machine; 0 when it is not known
   */
  public record Reading(long timeOfDay, long sinceBoot, int boot) {
    /** Returns the time of day at the start of the machine, as it was set at the time of the reading. */
    public long dayAtBoot() {
      return timeOfDay - sinceBoot;
    }
  }

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

  private static int bootId() {
    try {
      return Files.readString(BOOT_ID).hashCode();
    } catch (IOException e) {
      return 0;
    }
  }

  /** Returns the time for another process. */
  public Reading read() {
    return new Reading(timeOfDay(), nanos.getAsLong() / NANOS, THIS_BOOT);
  }

  /** Returns the steady time at the start of the machine: what {@link #millis} is then. */
  public long atBoot() {
    return start - startNanos / NANOS;
  }

  /** Whether a reading of another process was made since the start of the machine. */
  public boolean isComparable(Reading other) {
    return other.boot != 0 && other.boot == THIS_BOOT;
  }

  /** Returns the steady time at a reading, of another process, too. */
  public long millisAt(Reading other) {
    return isComparable(other) ? atBoot() + other.sinceBoot : other.timeOfDay;
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
