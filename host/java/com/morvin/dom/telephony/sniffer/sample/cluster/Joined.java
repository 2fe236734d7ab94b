package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.util.Arrays;
import java.util.HashMap;
import java.util.Map;
import java.util.concurrent.TimeUnit;
import java.util.stream.Collectors;

/**
 * A stream whose beginning was delivered to another recorder. The signalling of its calls is used when it is repeated,
 * which takes half a minute, or a little more when there are many calls.
 */
final class Joined {
  private static final long COMPLETE_NANOS = TimeUnit.MINUTES.toNanos(2);

  private final long at;
  private final long since;
  /** The calls whose repeated signalling was used, with the number of its last frame. */
  private final Map<Long, Long> known = new HashMap<>();

  /**
   * Joins a stream.
   *
   * @param at the first message that this recorder got
   * @param now the System.nanoTime
   */
  Joined(long at, long now) {
    this.at = at;
    since = now;
  }

  /** Joins a stream again after a restart. */
  Joined(String saved, long now) {
    long[] numbers = Arrays.stream(saved.split(",")).mapToLong(Long::parseLong).toArray();
    at = numbers[0];
    since = now;
    Arrays.stream(numbers).skip(1).forEach(call -> known.put(call, 0L));
  }

  /** Whether the signalling of a call is needed. */
  boolean needs(Recap recap) {
    return recap.since() < at && !known.containsKey(recap.call());
  }

  /** Records that the signalling of a call was used, up to a frame. */
  void use(Recap recap, long number) {
    known.put(recap.call(), number);
  }

  /** Whether the signalling of all calls was repeated. */
  boolean isComplete(long now) {
    return now - since >= COMPLETE_NANOS;
  }

  /** Returns the form that a recorder takes which is restarted after a frame. */
  String saved(long upTo) {
    return at + known.entrySet().stream().filter(call -> call.getValue() <= upTo).map(call -> "," + call.getKey())
        .collect(Collectors.joining());
  }
}
