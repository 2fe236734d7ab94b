package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.util.ArrayList;
import java.util.HashMap;
import java.util.Iterator;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.concurrent.TimeUnit;

/**
 * Puts the messages of each stream in order. The broker delivers unacknowledged messages again, not always before later
 * ones, and a front publishes unconfirmed messages again. So repeated messages are refused, and out-of-order messages
 * wait up to 2 s for the missing ones. Times are those of {@link System#nanoTime}.
 *
 * @param <T> the content of a message
 */
final class Sequences<T> {
  private static final long PATIENCE_NANOS = TimeUnit.SECONDS.toNanos(2);
  /** A stream is forgotten after this time without messages. */
  private static final long SILENT_NANOS = TimeUnit.HOURS.toNanos(2);
  private static final int MAX_EARLY = 5000;

  private final class Order {
    private long next;
    private final TreeMap<Long, T> early = new TreeMap<>();
    private long waitingSince;
    private long touched;
    /** Whether the beginning of the stream was delivered to another recorder. */
    private boolean joined;
  }

  private final Map<MessageId.Stream, Order> orders = new HashMap<>();
  private int early;
  private long missing;

  /** Continues a stream at a message, the first one that is not recorded. */
  void startAt(MessageId.Stream stream, long sequence, long now) {
    Order order = new Order();
    order.next = sequence;
    order.touched = now;
    orders.put(stream, order);
  }

  /** Whether the stream is unknown. */
  boolean isNew(MessageId.Stream stream) {
    return !orders.containsKey(stream);
  }

  /**
   * Adds a message and returns the messages that are due now, in order; returns null when the message is a repeated
   * one.
   */
  List<T> accept(MessageId id, T message, long now) {
    Order order = orders.computeIfAbsent(id.stream(), stream -> begin(id));
    order.touched = now;
    if (id.sequence() < order.next || order.early.containsKey(id.sequence())) {
      return null;
    }
    if (order.early.isEmpty()) {
      order.waitingSince = now;
    }
    order.early.put(id.sequence(), message);
    early++;
    List<T> due = inOrder(order, now);
    if (early > MAX_EARLY) {
      orders.values().forEach(any -> due.addAll(skip(any, now)));
    }
    return due;
  }

  private Order begin(MessageId first) {
    Order order = new Order();
    order.joined = first.sequence() > 0;
    return order;
  }

  private List<T> inOrder(Order order, long now) {
    List<T> due = new ArrayList<>(1);
    while (!order.early.isEmpty() && order.early.firstKey() == order.next) {
      due.add(order.early.pollFirstEntry().getValue());
      order.next++;
      order.waitingSince = now;
      order.joined = false;
      early--;
    }
    return due;
  }

  /** Gives up the missing messages before the first waiting one. */
  private List<T> skip(Order order, long now) {
    if (order.early.isEmpty()) {
      return List.of();
    }
    missing += order.joined ? 0 : order.early.firstKey() - order.next;
    order.joined = false;
    order.next = order.early.firstKey();
    return inOrder(order, now);
  }

  /** Returns the messages that have waited long enough, and forgets silent streams. Called a few times a second. */
  List<T> overdue(long now) {
    List<T> due = new ArrayList<>();
    for (Iterator<Order> all = orders.values().iterator(); all.hasNext();) {
      Order order = all.next();
      if (!order.early.isEmpty() && now - order.waitingSince >= PATIENCE_NANOS) {
        due.addAll(skip(order, now));
      }
      if (order.early.isEmpty() && now - order.touched >= SILENT_NANOS) {
        all.remove();
      }
    }
    return due;
  }

  /** Forgets the out-of-order messages. The broker delivers them again. */
  void restart() {
    orders.values().forEach(order -> order.early.clear());
    early = 0;
  }

  /** Whether a stream of this session is known. */
  boolean knows(String session) {
    return orders.keySet().stream().anyMatch(stream -> stream.session().equals(session));
  }

  /** Whether a message waits for a missing one. */
  boolean isWaiting() {
    return early > 0;
  }

  /** Returns the number of messages that were given up. */
  long missing() {
    return missing;
  }
}
