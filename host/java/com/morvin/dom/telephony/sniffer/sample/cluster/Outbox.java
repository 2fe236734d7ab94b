package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.util.LinkedHashSet;
import java.util.Map;
import java.util.Set;
import java.util.TreeMap;
import java.util.concurrent.TimeUnit;

/**
 * The messages that the broker has not confirmed yet, bounded in bytes. When the bound is exceeded, the oldest media is
 * dropped first and signalling last. Lost frames are counted. Any thread may call any method.
 */
final class Outbox {
  /** Approximate memory of a message in addition to its body, in bytes. */
  private static final int OVERHEAD = 400;
  // The most that is published before the broker has confirmed it.
  private static final int MAX_UNCONFIRMED = 4000;
  private static final long MAX_UNCONFIRMED_BYTES = 32L << 20;

  /** A message with its own identity: two entries are never equal. */
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
  /** The waiting entries without signalling, which are dropped first. */
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

  /** Adds a message, and drops older ones when the bound is exceeded. */
  synchronized void add(Message message) {
    Entry entry = new Entry(message);
    add(entry);
    bytes += entry.bytes();
    while (bytes > maxBytes && drop(media) || bytes > maxBytes && drop(waiting)) {
      // One more was dropped.
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

  /**
   * Removes and returns the next message to publish. Returns null when there is none in time, or while too much is
   * unconfirmed.
   */
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

  /** Records that an entry is about to be published under a number. Numbers increase. */
  synchronized void sent(long number, Entry entry) {
    unconfirmed.put(number, entry);
    unconfirmedBytes += entry.bytes();
  }

  /**
   * Removes a confirmed message.
   *
   * @param multiple whether all messages before it are confirmed as well
   */
  synchronized void confirmed(long number, boolean multiple) {
    Map<Long, Entry> safe =
        multiple ? unconfirmed.headMap(number, true) : unconfirmed.subMap(number, true, number, true);
    safe.values().forEach(entry -> {
      unconfirmedBytes -= entry.bytes();
      bytes -= entry.bytes();
      confirmedMessages++;
      confirmedFrames += entry.message.frames();
    });
    safe.clear();
    notifyAll();
  }

  /** Puts all unconfirmed messages back in their order, before the waiting ones, to be published again. */
  synchronized void putBack() {
    LinkedHashSet<Entry> before = waiting;
    waiting = new LinkedHashSet<>();
    media = new LinkedHashSet<>();
    unconfirmed.values().forEach(this::add);
    before.forEach(this::add);
    unconfirmed.clear();
    unconfirmedBytes = 0;
  }

  /** Whether all messages are confirmed or dropped. */
  synchronized boolean isEmpty() {
    return waiting.isEmpty() && unconfirmed.isEmpty();
  }

  /** Returns the size of the waiting and unconfirmed messages in bytes. */
  synchronized long bytes() {
    return bytes;
  }

  /** Returns the largest size so far, in bytes. */
  synchronized long peak() {
    return peak;
  }

  /** Returns the number of confirmed messages. */
  synchronized long confirmedMessages() {
    return confirmedMessages;
  }

  /** Returns the number of frames in confirmed messages. */
  synchronized long confirmedFrames() {
    return confirmedFrames;
  }

  /** Returns the number of frames that were dropped because the bound was exceeded. */
  synchronized long lostFrames() {
    return lostFrames;
  }

  /** Returns the number of frames that are neither confirmed nor dropped. */
  synchronized long openFrames() {
    long frames = unconfirmed.values().stream().mapToLong(entry -> entry.message.frames()).sum();
    return frames + waiting.stream().mapToLong(entry -> entry.message.frames()).sum();
  }
}
