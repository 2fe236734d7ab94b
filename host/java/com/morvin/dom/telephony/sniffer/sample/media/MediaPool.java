package com.morvin.dom.telephony.sniffer.sample.media;

import java.util.Collection;
import java.util.Comparator;
import java.util.List;
import java.util.concurrent.TimeUnit;

/**
 * The memory that all tracks together take beyond the usual: for packets that wait, sources beside the voice, and lists
 * of what was lost. A call in which much is lost, or which is attacked, may take much of it while others need none.
 * When the pool is empty, those that take the most give back first. Belongs to the recorder thread.
 */
public final class MediaPool {
  private static final long PAUSE_NANOS = TimeUnit.MILLISECONDS.toNanos(100);

  private final long size;
  /** What the tracks took when they were measured, and what they have taken since, in bytes. */
  private long taken;
  /** Whether a track could not take what it needs. */
  private boolean isWanted;
  private long measuredAt = System.nanoTime() - PAUSE_NANOS;

  /** Makes a pool with a size in bytes. */
  public MediaPool(long size) {
    this.size = size;
  }

  /** Takes memory for another source or file of a track. Returns false when there is none. */
  boolean take(int bytes) {
    isWanted |= taken + bytes > size;
    if (!isWanted) {
      taken += bytes;
    }
    return !isWanted;
  }

  /** Counts memory that was taken for copies of packets. */
  public void add(long bytes) {
    taken += bytes;
  }

  /** Whether the tracks have to be measured, because they may have taken all. */
  public boolean isEmpty() {
    return (isWanted || taken > size) && System.nanoTime() - measuredAt >= PAUSE_NANOS;
  }

  /** Measures the tracks. When they need more than there is, they give back until half of it is free. */
  public void measure(Collection<Track> tracks) {
    taken = tracks.stream().mapToLong(Track::unusualBytes).sum();
    if (isWanted || taken > size) {
      // Their memory changes while they give back.
      record Taker(Track track, long bytes) {}
      List<Taker> takers = tracks.stream().map(track -> new Taker(track, track.unusualBytes()))
          .filter(taker -> taker.bytes > 0).sorted(Comparator.comparingLong(Taker::bytes).reversed()).toList();
      for (Taker taker : takers) {
        if (taken <= size / 2) {
          break;
        }
        taker.track.giveBack();
        taken -= taker.bytes - taker.track.unusualBytes();
      }
    }
    isWanted = false;
    measuredAt = System.nanoTime();
  }
}
