package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import java.util.Collection;
import java.util.Comparator;
import java.util.HashMap;
import java.util.LinkedHashSet;
import java.util.Map;
import java.util.Set;

/**
 * The calls that give way to new ones, by the address that their signalling came from. Calls without media or with few
 * packets go first, then those whose media has stopped. A call with steady and recent media stays.
 */
final class Removable {
  /** The number of packets that makes media steady: one second of speech. */
  private static final int STEADY_PACKETS = 50;
  private static final long STOPPED_MILLIS = 10_000;
  private static final int BATCHES = 16;

  private final Map<Address, Set<Call>> brief = new HashMap<>();
  private final Map<Address, Set<Call>> stopped = new HashMap<>();
  /** The next calls that give way, until the next update of all calls. */
  private final Set<Call> chosen = new LinkedHashSet<>();

  /** Adds or removes the running calls by their media. */
  void update(Collection<Call> calls, Moment now) {
    chosen.clear();
    calls.forEach(call -> update(call, now));
  }

  /** Adds or removes a call by its media. */
  void update(Call call, Moment now) {
    boolean isBrief = call.flow().packets() < STEADY_PACKETS;
    boolean isStopped = !isBrief && now.since(call.flow().last()) >= STOPPED_MILLIS;
    set(brief, call, isBrief);
    set(stopped, call, isStopped);
  }

  /** Removes an ended call. */
  void remove(Call call) {
    chosen.remove(call);
    set(brief, call, false);
    set(stopped, call, false);
  }

  private static void set(Map<Address, Set<Call>> calls, Call call, boolean contained) {
    Set<Call> ofOrigin = calls.get(call.origin());
    if (contained && ofOrigin == null) {
      ofOrigin = new LinkedHashSet<>();
      calls.put(call.origin(), ofOrigin);
    }
    if (contained) {
      ofOrigin.add(call);
    } else if (ofOrigin != null && ofOrigin.remove(call) && ofOrigin.isEmpty()) {
      calls.remove(call.origin());
    }
  }

  /**
   * Returns the call that gives way: of the address with the most calls, the oldest call with the lowest priority.
   * Returns null when no call gives way.
   */
  Call next(Moment now) {
    if (chosen.isEmpty()) {
      choose(brief.isEmpty() ? stopped : brief, now);
    }
    return chosen.isEmpty() ? null : chosen.iterator().next();
  }

  /** Chooses many calls at a time, because comparing all of them takes long and a flood needs one for each message. */
  private void choose(Map<Address, Set<Call>> calls, Moment now) {
    int most = 1 + calls.values().stream().mapToInt(Set::size).sum() / BATCHES;
    calls.values().stream().sorted(Comparator.<Set<Call>>comparingInt(Set::size).reversed())
        .flatMap(ofOrigin -> ofOrigin.stream().sorted(Comparator.comparingInt(call -> call.priority(now))))
        .limit(most).forEach(chosen::add);
  }
}
