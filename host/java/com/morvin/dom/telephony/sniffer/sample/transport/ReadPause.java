package com.morvin.dom.telephony.sniffer.sample.transport;

import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.LockSupport;

/**
 * The pause of a reader before it reads again, so that more frames come in one block. It goes by the rate of what
 * comes: a sniffer sends at most 117 KiB that have not been read, and must not wait for the reader. Belongs to one
 * thread.
 */
final class ReadPause {
  /** What comes from one sniffer in a pause. */
  private static final long PAUSE_BYTES = 48 << 10;
  private static final long MAX_NANOS = TimeUnit.MILLISECONDS.toNanos(4);

  private long last = System.nanoTime();
  private int largest;

  /** Called with the length in bytes of each block. */
  void read(int length) {
    largest = Math.max(largest, length);
  }

  /** Pauses after the blocks that came together. */
  void await() {
    long now = System.nanoTime();
    if (largest < 2 * PAUSE_BYTES) {
      double nanosPerByte = (double) (now - last) / largest;
      LockSupport.parkNanos(Math.min(MAX_NANOS, (long) (nanosPerByte * PAUSE_BYTES)));
    }
    last = now;
    largest = 0;
  }
}
