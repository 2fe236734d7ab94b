package com.morvin.dom.telephony.sniffer.sample.metrics;

import java.util.function.BiConsumer;

/** Counts frames by their delay. Belongs to one thread. */
public final class Histogram {
  private static final long[] BOUNDS_MILLIS = {50, 100, 250, 500, 1000, 2500, 10_000, 60_000};

  private final long[] counts = new long[BOUNDS_MILLIS.length + 1];
  private double sum;

  /** Adds a number of frames with the same delay in milliseconds. */
  public void add(long millis, int frames) {
    int bucket = 0;
    while (bucket < BOUNDS_MILLIS.length && millis > BOUNDS_MILLIS[bucket]) {
      bucket++;
    }
    counts[bucket] += frames;
    sum += millis / 1e3 * frames;
  }

  /** Passes each upper bound in seconds, with the number of frames up to it. */
  void cumulated(BiConsumer<String, Long> out) {
    long count = 0;
    for (int i = 0; i < BOUNDS_MILLIS.length; i++) {
      count += counts[i];
      out.accept(Double.toString(BOUNDS_MILLIS[i] / 1e3), count);
    }
    out.accept("+Inf", count());
  }

  /** Returns the sum of all delays in seconds. */
  double sum() {
    return sum;
  }

  /** Returns the number of frames. */
  long count() {
    long all = 0;
    for (long count : counts) {
      all += count;
    }
    return all;
  }
}
