package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.util.ArrayDeque;
import java.util.Comparator;
import java.util.Deque;
import java.util.LinkedHashMap;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeMap;
import java.util.concurrent.TimeUnit;
import java.util.function.UnaryOperator;
import java.util.stream.Stream;

/**
 * The messages that the broker has not confirmed yet, bounded in bytes. Each partition has a lane of its own: the
 * messages of a lane leave in their order, and a lane whose messages are not confirmed stops no other one. When the
 * bound is exceeded, the oldest media is dropped first and signalling last. Lost frames are counted. Any thread may
 * call any method.
 */
final class Outbox {
  /** Approximate memory of a message in addition to its body, in bytes. */
  private static final int OVERHEAD = 400;
  /** The most messages of a lane before a confirmation. The broker delays a connection with many more for a queue. */
  private static final int WINDOW = 16;

  /** A message with its own identity: two entries are never equal. */
  static final class Entry {
    final Lane lane;
    private final long since = System.nanoTime();
    private Message message;

    private Entry(Lane lane, Message message) {
      this.lane = lane;
      this.message = message;
    }

    Message message() {
      return message;
    }

    private long bytes() {
      return message.body().length + OVERHEAD;
    }
  }

  /** The messages of a partition. */
  static final class Lane {
    final Partition partition;
    private final Deque<Entry> waiting = new ArrayDeque<>();
    private final TreeMap<Long, Entry> unconfirmed = new TreeMap<>();
    private long unconfirmedBytes;
    private boolean paused;
    /** The System.nanoTime of the last confirmation, or since when one can be expected if that is later. */
    private long progress = System.nanoTime();

    private Lane(Partition partition) {
      this.partition = partition;
    }

    /** Whether the next message may leave. What has left cannot be dropped, so it takes only a part of the bound. */
    private boolean isReady(long maxBytes) {
      boolean open = unconfirmed.isEmpty() || unconfirmed.size() < WINDOW && unconfirmedBytes < maxBytes;
      return !paused && !waiting.isEmpty() && open;
    }

    private Stream<Entry> entries() {
      return Stream.concat(unconfirmed.values().stream(), waiting.stream());
    }
  }

  /**
   * What has become of messages.
   *
   * @param frames all frames of the messages
   * @param lostFrames those that were dropped because the bound was exceeded
   */
  record Counts(long frames, long confirmedMessages, long confirmedFrames, long lostFrames) {
    private static final Counts NONE = new Counts(0, 0, 0, 0);

    /** Returns the number of frames that are neither confirmed nor dropped. */
    long waitingFrames() {
      return frames - confirmedFrames - lostFrames;
    }

    private Counts plusAdded(long more) {
      return new Counts(frames + more, confirmedMessages, confirmedFrames, lostFrames);
    }

    private Counts plusConfirmed(long more) {
      return new Counts(frames, confirmedMessages + 1, confirmedFrames + more, lostFrames);
    }

    private Counts plusLost(long more) {
      return new Counts(frames, confirmedMessages, confirmedFrames, lostFrames + more);
    }
  }

  private final long maxBytes;
  private final String session;
  private final Map<Partition, Lane> lanes = new LinkedHashMap<>();
  private final Set<Lane> ready = new LinkedHashSet<>();
  /** The waiting entries with media and all waiting entries, oldest first. */
  private final LinkedHashSet<Entry> media = new LinkedHashSet<>();
  private final LinkedHashSet<Entry> waiting = new LinkedHashSet<>();
  private long bytes;
  private Counts own = Counts.NONE;
  private Counts earlier = Counts.NONE;
  private long peak;

  /**
   * Makes an empty outbox.
   *
   * @param maxBytes the bound
   * @param session that of this front; messages of other ones are counted apart
   */
  Outbox(long maxBytes, String session) {
    this.maxBytes = maxBytes;
    this.session = session;
  }

  /** Whether a message is of this front, not of the one before it. */
  boolean isOwn(Message message) {
    return message.id().stream().session().equals(session);
  }

  private void count(Message message, UnaryOperator<Counts> change) {
    if (isOwn(message)) {
      own = change.apply(own);
    } else {
      earlier = change.apply(earlier);
    }
  }

  /** Adds a message, and drops older media when the bound is exceeded. */
  synchronized void add(Message message) {
    Lane lane = lanes.computeIfAbsent(message.partition(), Lane::new);
    Entry entry = new Entry(lane, message);
    lane.waiting.add(entry);
    waits(entry);
    count(message, counts -> counts.plusAdded(message.frames()));
    bytes += entry.bytes();
    while (bytes > maxBytes && (dropMedia() || dropOldest())) {
      // One more was dropped.
    }
    peak = Math.max(peak, bytes);
    updateReady(lane);
  }

  private void waits(Entry entry) {
    waiting.add(entry);
    if (entry.message.media()) {
      media.add(entry);
    }
  }

  private void updateReady(Lane lane) {
    if (!lane.isReady(maxBytes / 2 / Partition.COUNT)) {
      ready.remove(lane);
    } else if (ready.add(lane)) {
      notifyAll();
    }
  }

  /** Drops the oldest media. Its message keeps the signalling and its place in the sequence. */
  private boolean dropMedia() {
    if (media.isEmpty()) {
      return false;
    }
    Entry oldest = media.iterator().next();
    media.remove(oldest);
    bytes -= oldest.bytes();
    Message before = oldest.message;
    oldest.message = before.withoutMedia();
    count(before, counts -> counts.plusLost(before.frames() - oldest.message.frames()));
    bytes += oldest.bytes();
    return true;
  }

  private boolean dropOldest() {
    if (waiting.isEmpty()) {
      return false;
    }
    Entry oldest = waiting.iterator().next();
    waiting.remove(oldest);
    oldest.lane.waiting.remove(oldest);
    updateReady(oldest.lane);
    bytes -= oldest.bytes();
    count(oldest.message, counts -> counts.plusLost(oldest.message.frames()));
    return true;
  }

  /** Removes and returns the next message to publish. Returns null when there is none in time. */
  synchronized Entry next(long timeoutMillis) throws InterruptedException {
    long deadline = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(timeoutMillis);
    while (ready.isEmpty()) {
      long left = TimeUnit.NANOSECONDS.toMillis(deadline - System.nanoTime());
      if (left <= 0) {
        return null;
      }
      wait(left);
    }
    Lane lane = ready.iterator().next();
    ready.remove(lane);
    Entry entry = lane.waiting.remove();
    waiting.remove(entry);
    media.remove(entry);
    return entry;
  }

  /** Takes back an entry that cannot be published yet. */
  synchronized void giveBack(Entry entry) {
    entry.lane.waiting.addFirst(entry);
    sort();
    updateReady(entry.lane);
  }

  /** Records that an entry is about to be published under a number of its lane. Numbers increase. */
  synchronized void sent(long number, Entry entry) {
    entry.lane.unconfirmed.put(number, entry);
    entry.lane.unconfirmedBytes += entry.bytes();
    updateReady(entry.lane);
  }

  /**
   * Removes a confirmed message.
   *
   * @param multiple whether all messages of the lane before it are confirmed as well
   */
  synchronized void confirmed(Lane lane, long number, boolean multiple) {
    Map<Long, Entry> safe =
        multiple ? lane.unconfirmed.headMap(number, true) : lane.unconfirmed.subMap(number, true, number, true);
    safe.values().forEach(entry -> {
      bytes -= entry.bytes();
      lane.unconfirmedBytes -= entry.bytes();
      count(entry.message, counts -> counts.plusConfirmed(entry.message.frames()));
    });
    safe.clear();
    lane.progress = System.nanoTime();
    updateReady(lane);
  }

  /** Puts the unconfirmed messages of a lane back in their order, and stops the lane until {@link #resume}. */
  synchronized void putBack(Lane lane) {
    stop(lane);
    sort();
  }

  /** Puts the unconfirmed messages of all lanes back in their order, and stops the lanes. */
  synchronized void putBack() {
    lanes.values().forEach(this::stop);
    sort();
  }

  private void stop(Lane lane) {
    List<Entry> entries = lane.entries().toList();
    lane.unconfirmed.clear();
    lane.unconfirmedBytes = 0;
    lane.waiting.clear();
    lane.waiting.addAll(entries);
    lane.paused = true;
    updateReady(lane);
  }

  /** Puts the waiting entries in the order of their age. */
  private void sort() {
    waiting.clear();
    media.clear();
    lanes.values().stream().flatMap(lane -> lane.waiting.stream())
        .sorted(Comparator.comparingLong(entry -> entry.since)).forEach(this::waits);
  }

  /** Makes a lane ready again. */
  synchronized void resume(Lane lane) {
    lane.paused = false;
    updateReady(lane);
  }

  /** Makes all lanes ready again on a new connection. */
  synchronized void resume() {
    expectProgress();
    lanes.values().forEach(this::resume);
  }

  /** Records that the broker can confirm messages from now on: {@link #stalled} counts from here. */
  synchronized void expectProgress() {
    lanes.values().forEach(lane -> lane.progress = System.nanoTime());
  }

  /**
   * Returns the partitions with a message that is older than so many nanoseconds, if none of theirs was confirmed in
   * this time, although it could be.
   */
  synchronized List<Partition> stalled(long nanos) {
    long now = System.nanoTime();
    return lanes.values().stream()
        .filter(lane -> now - lane.progress >= nanos && lane.entries().anyMatch(entry -> now - entry.since >= nanos))
        .map(lane -> lane.partition).toList();
  }

  /** Returns the System.nanoTime of the oldest message; the present one when there is none. */
  synchronized long oldest() {
    long now = System.nanoTime();
    long age = lanes.values().stream().flatMap(lane -> lane.entries().limit(1)).mapToLong(entry -> now - entry.since)
        .max().orElse(0);
    return now - age;
  }

  /** Returns all messages that are neither confirmed nor dropped, those of each partition in their order. */
  synchronized List<Message> messages() {
    return lanes.values().stream().flatMap(Lane::entries).map(Entry::message).toList();
  }

  /** Whether all messages are confirmed or dropped. */
  synchronized boolean isEmpty() {
    return lanes.values().stream().allMatch(lane -> lane.waiting.isEmpty() && lane.unconfirmed.isEmpty());
  }

  /** Returns the size of the waiting and unconfirmed messages in bytes. */
  synchronized long bytes() {
    return bytes;
  }

  /** Returns the largest size so far, in bytes. */
  synchronized long peak() {
    return peak;
  }

  /** Returns what has become of the messages of this front. */
  synchronized Counts own() {
    return own;
  }

  /** Returns what has become of the messages of the front before. */
  synchronized Counts earlier() {
    return earlier;
  }

  /** Returns the number of frames that were dropped because the bound was exceeded. */
  synchronized long lostFrames() {
    return own.lostFrames + earlier.lostFrames;
  }
}
