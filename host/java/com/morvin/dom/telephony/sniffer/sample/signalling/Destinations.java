package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import java.util.ArrayList;
import java.util.Collections;
import java.util.Comparator;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.function.Consumer;

/**
 * The destinations that the sniffers were asked to forward, and the calls that use them. A destination that several
 * calls use is requested once, and dismissed when the last of the calls has ended.
 */
final class Destinations {
  private static final int MAX_DISMISSED = 4096;
  /** The most calls that share a destination. Real calls share one between two or three. */
  private static final int MAX_USES = 16;
  private static final int MAX_REPEATS = 3;
  private static final long REPEAT_MILLIS = 1000;

  private static final class Entry implements EndpointMap.Keyed {
    private final long key;
    final List<Call.Use> uses = new ArrayList<>(1);
    /** The only use, the usual case; null when there are several. */
    Call.Use only;
    boolean heard;
    int repeats;
    Moment asked;

    Entry(Endpoint endpoint) {
      key = endpoint.key();
    }

    @Override
    public long key() {
      return key;
    }

    void replace(Call.Use old, Call.Use use) {
      uses.remove(old);
      if (uses.size() == MAX_USES) {
        Call.Use mute = uses.stream().filter(other -> !other.call().flow().exists()).findFirst().orElse(uses.get(0));
        uses.remove(mute);
      }
      uses.add(use);
      only = uses.size() == 1 ? use : null;
    }

    boolean remove(Call.Use use) {
      boolean removed = uses.remove(use);
      only = uses.size() == 1 ? uses.get(0) : null;
      return removed;
    }
  }

  private final Map<Endpoint, Entry> entries = new LinkedHashMap<>();
  private final EndpointMap<Entry> byKey = new EndpointMap<>();
  private final Map<Call, Map<Endpoint, Call.Use>> ofCalls = new HashMap<>();
  private final BoundedMap<Endpoint, Moment> dismissed = new BoundedMap<>(MAX_DISMISSED);
  private final Consumer<Command> sniffers;

  Destinations(Consumer<Command> sniffers) {
    this.sniffers = sniffers;
  }

  /** Replaces the destinations of a call. New ones are requested before old ones are dismissed. */
  void update(Call call, Map<Endpoint, Call.Use> wanted, Moment now) {
    Map<Endpoint, Call.Use> before = ofCalls.getOrDefault(call, Map.of());
    wanted.forEach((endpoint, use) -> {
      Call.Use old = before.get(endpoint);
      if (!use.equals(old)) {
        Entry entry = entries.get(endpoint);
        if (entry == null) {
          entry = new Entry(endpoint);
          entry.asked = now;
          entries.put(endpoint, entry);
          byKey.put(entry);
          sniffers.accept(Command.add(endpoint));
        }
        entry.replace(old, use);
      }
    });
    before.forEach((endpoint, use) -> {
      if (!wanted.containsKey(endpoint)) {
        Entry entry = entries.get(endpoint);
        if (entry != null && entry.remove(use) && entry.uses.isEmpty()) {
          entries.remove(endpoint);
          byKey.remove(endpoint.key());
          dismiss(endpoint, now);
        }
      }
    });
    if (wanted.isEmpty()) {
      ofCalls.remove(call);
    } else {
      ofCalls.put(call, wanted);
    }
  }

  private void dismiss(Endpoint endpoint, Moment now) {
    dismissed.putLast(endpoint, now);
    sniffers.accept(Command.remove(endpoint));
  }

  /**
   * Returns the use of a destination by the call of a media frame; null when no call uses it. Source and destination
   * together identify the call, so that both directions of a stream belong to the same one: the other party of the call
   * receives at the source (most telephones send from there), or at least at another port of its address. Among calls
   * that fit equally well, the first choice is the one that has just received this stream, then the newest one.
   *
   * @param destination see {@link Endpoint#key}
   */
  Call.Use find(long destination, long source, Moment now) {
    Entry entry = byKey.get(destination);
    if (entry == null) {
      return null;
    }
    entry.heard = true;
    return entry.only != null ? entry.only
        : Collections.max(entry.uses, Comparator.comparingInt((Call.Use use) -> fit(use, Endpoint.of(source), now))
            .thenComparingInt(use -> use.call().number()));
  }

  /** Returns the use of a destination that only one call uses, or else null. */
  Call.Use peek(long destination) {
    Entry entry = byKey.get(destination);
    return entry == null ? null : entry.only;
  }

  /** Returns the uses of a destination by all calls. */
  List<Call.Use> uses(Endpoint destination) {
    Entry entry = entries.get(destination);
    return entry == null ? List.of() : List.copyOf(entry.uses);
  }

  private int fit(Call.Use use, Endpoint source, Moment now) {
    Map<Endpoint, Call.Use> ofCall = ofCalls.get(use.call());
    Call.Use other = ofCall.get(source);
    int flowing = use.call().flow().comesFrom(use.direction(), source.key(), now) ? 1 : 0;
    if (other != null && other.direction() != use.direction()) {
      return 4 + flowing;
    }
    boolean knowsHost = ofCall.entrySet().stream()
        .anyMatch(any -> any.getKey().ip() == source.ip() && any.getValue().direction() != use.direction());
    return (knowsHost ? 2 : 0) + flowing;
  }

  /**
   * Dismisses a destination that no call uses. A sniffer forwards it because it missed the command, or because the
   * recorder was restarted. The command is not repeated within 1 s, because frames sent before it may still arrive.
   */
  void unwanted(Endpoint endpoint, Moment now) {
    Moment last = dismissed.get(endpoint);
    if (last == null || now.since(last) >= REPEAT_MILLIS) {
      dismiss(endpoint, now);
    }
  }

  /** Asks a sniffer with an empty list for all destinations. */
  void resend(Consumer<Command> sniffer) {
    entries.keySet().forEach(endpoint -> sniffer.accept(Command.add(endpoint)));
  }

  /**
   * Requests destinations without media again, up to three times. For transports that can lose commands. A second entry
   * in the list of the sniffer is harmless: one command removes both.
   */
  void repeat(Moment now) {
    entries.forEach((endpoint, entry) -> {
      if (!entry.heard && entry.repeats < MAX_REPEATS
          && now.since(entry.asked) >= REPEAT_MILLIS << entry.repeats) {
        entry.repeats++;
        entry.asked = now;
        sniffers.accept(Command.add(endpoint));
      }
    });
  }
}
