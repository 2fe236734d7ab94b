package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.util.ArrayList;
import java.util.HashMap;
import java.util.Iterator;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.concurrent.TimeUnit;

/**
 * Puts the messages of each call in order. A broker delivers a message again that was not acknowledged, and not always
 * before later ones, and a front publishes one again that was not confirmed; so what has been there is refused, and
 * what is early waits a little for what is missing.
 *
 * @param <T> what is known by the number of a message
 */
final class Sequences<T> {
  private static final long PATIENCE_NANOS = TimeUnit.SECONDS.toNanos(2);
  /** How long a call is remembered that has ended or from which nothing comes. */
  private static final long MEMORY_NANOS = TimeUnit.MINUTES.toNanos(2);
  private static final long SILENT_NANOS = TimeUnit.HOURS.toNanos(2);
  private static final int MAX_EARLY = 5000;

  private final class Order {
    private long next;
    private final TreeMap<Long, T> early = new TreeMap<>();
    private long waitingSince;
    private long touched;
    private boolean ended;
  }

  private final Map<MessageId.Stream, Order> orders = new HashMap<>();
  private int early;
  private long missing;

  /** The call goes on at a message, the first that has not been there. */
  void startAt(MessageId.Stream call, long sequence, long now) {
    Order order = new Order();
    order.next = sequence;
    order.touched = now;
    orders.put(call, order);
  }

  /** Whether nothing is known of the call: it began with another recorder, or is long over. */
  boolean isNew(MessageId.Stream call) {
    return !orders.containsKey(call);
  }

  /** What is due now, in order; null when the message has been there before. */
  List<T> accept(MessageId id, T message, boolean last, long now) {
    Order order = orders.computeIfAbsent(id.call(), call -> new Order());
    order.touched = now;
    order.ended |= last;
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

  private List<T> inOrder(Order order, long now) {
    List<T> due = new ArrayList<>(1);
    while (!order.early.isEmpty() && order.early.firstKey() == order.next) {
      due.add(order.early.pollFirstEntry().getValue());
      order.next++;
      order.waitingSince = now;
      early--;
    }
    return due;
  }

  /** Gives up what is missing before the first that is there. */
  private List<T> skip(Order order, long now) {
    if (order.early.isEmpty()) {
      return List.of();
    }
    missing += order.early.firstKey() - order.next;
    order.next = order.early.firstKey();
    return inOrder(order, now);
  }

  /** What has waited long enough. Calls that ended a while ago are forgotten; to be called about every second. */
  List<T> overdue(long now) {
    List<T> due = new ArrayList<>();
    for (Iterator<Order> all = orders.values().iterator(); all.hasNext();) {
      Order order = all.next();
      if (!order.early.isEmpty() && now - order.waitingSince >= PATIENCE_NANOS) {
        due.addAll(skip(order, now));
      }
      if (order.early.isEmpty() && now - order.touched >= (order.ended ? MEMORY_NANOS : SILENT_NANOS)) {
        all.remove();
      }
    }
    return due;
  }

  /** Forgets what is early: it will come again. */
  void restart() {
    orders.values().forEach(order -> order.early.clear());
    early = 0;
  }

  boolean isWaiting() {
    return early > 0;
  }

  /** Messages that never came. */
  long missing() {
    return missing;
  }
}
