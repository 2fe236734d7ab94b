package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.util.LinkedHashSet;
import java.util.Map;
import java.util.Set;
import java.util.TreeMap;
import java.util.concurrent.TimeUnit;

/**
 * Messages on their way to the broker, from when they are complete until the broker has confirmed that they are on its
 * disks. There is a bound: beyond it the oldest media is dropped first, signalling last, and counted.
 */
final class Outbox {
  /** What a message takes besides its body, roughly. */
  private static final int OVERHEAD = 400;
  // What the broker may have unconfirmed at a time.
  private static final int MAX_UNCONFIRMED = 4000;
  private static final long MAX_UNCONFIRMED_BYTES = 32L << 20;

  /** A message, which is equal to no other. */
  static final class Entry {
    final Message message;

    Entry(Message message) {
      this.message = message;
    }

    private long bytes() {
      return message.body().length + OVERHEAD;
    }
  }

  private final long maxBytes;
  private LinkedHashSet<Entry> waiting = new LinkedHashSet<>();
  /** Those of them that are dropped first. */
  private LinkedHashSet<Entry> media = new LinkedHashSet<>();
  private final TreeMap<Long, Entry> unconfirmed = new TreeMap<>();
  private long bytes;
  private long unconfirmedBytes;
  private long confirmedMessages;
  private long confirmedFrames;
  private long lostFrames;
  private long peak;

  Outbox(long maxBytes) {
    this.maxBytes = maxBytes;
  }

  synchronized void add(Message message) {
    Entry entry = new Entry(message);
    add(entry);
    bytes += entry.bytes();
    while (bytes > maxBytes && drop(media) || bytes > maxBytes && drop(waiting)) {
      // One more has made room.
    }
    peak = Math.max(peak, bytes);
    notifyAll();
  }

  private void add(Entry entry) {
    waiting.add(entry);
    if (!entry.message.signalling()) {
      media.add(entry);
    }
  }

  private boolean drop(Set<Entry> from) {
    if (from.isEmpty()) {
      return false;
    }
    Entry oldest = from.iterator().next();
    waiting.remove(oldest);
    media.remove(oldest);
    bytes -= oldest.bytes();
    lostFrames += oldest.message.frames();
    return true;
  }

  /** The next to publish, or null when there is none in time, or none that the broker may have yet. */
  synchronized Entry next(long timeoutMillis) throws InterruptedException {
    long deadline = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(timeoutMillis);
    while (true) {
      if (!waiting.isEmpty() && unconfirmed.size() < MAX_UNCONFIRMED && unconfirmedBytes < MAX_UNCONFIRMED_BYTES) {
        Entry entry = waiting.iterator().next();
        waiting.remove(entry);
        media.remove(entry);
        return entry;
      }
      long left = TimeUnit.NANOSECONDS.toMillis(deadline - System.nanoTime());
      if (left <= 0) {
        return null;
      }
      wait(left);
    }
  }

  /** It is about to be published, under a number that grows. */
  synchronized void sent(long number, Entry entry) {
    unconfirmed.put(number, entry);
    unconfirmedBytes += entry.bytes();
  }

  /** The broker has it, and all before it when that is said. */
  synchronized void confirmed(long number, boolean multiple) {
    Map<Long, Entry> safe = multiple ? unconfirmed.headMap(number, true) : unconfirmed.subMap(number, true, number, true);
    safe.values().forEach(entry -> {
      unconfirmedBytes -= entry.bytes();
      bytes -= entry.bytes();
      confirmedMessages++;
      confirmedFrames += entry.message.frames();
    });
    safe.clear();
    notifyAll();
  }

  /** Whatever was not confirmed is to be published again, in its order, before all else. */
  synchronized void putBack() {
    LinkedHashSet<Entry> before = waiting;
    waiting = new LinkedHashSet<>();
    media = new LinkedHashSet<>();
    unconfirmed.values().forEach(this::add);
    before.forEach(this::add);
    unconfirmed.clear();
    unconfirmedBytes = 0;
  }

  synchronized boolean isEmpty() {
    return waiting.isEmpty() && unconfirmed.isEmpty();
  }

  /** What waits or is not confirmed. */
  synchronized long bytes() {
    return bytes;
  }

  synchronized long peak() {
    return peak;
  }

  synchronized long confirmedMessages() {
    return confirmedMessages;
  }

  synchronized long confirmedFrames() {
    return confirmedFrames;
  }

  /** Frames that were dropped because the bound was reached. */
  synchronized long lostFrames() {
    return lostFrames;
  }

  /** Frames that neither were dropped nor are known to be safe. */
  synchronized long openFrames() {
    long frames = unconfirmed.values().stream().mapToLong(entry -> entry.message.frames()).sum();
    return frames + waiting.stream().mapToLong(entry -> entry.message.frames()).sum();
  }
}
