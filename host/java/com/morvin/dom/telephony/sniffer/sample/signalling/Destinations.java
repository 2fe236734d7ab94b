package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.function.Consumer;

/**
 * Which destinations the sniffer has been asked to forward, and for which calls. A destination that several calls use
 * is asked for once and dismissed when the last of them has gone.
 */
final class Destinations {
  private static final int MAX_DISMISSED = 4096;
  /** Calls that share a destination; a real one is shared by two or three. */
  private static final int MAX_USES = 16;
  private static final int MAX_REPEATS = 3;
  private static final long REPEAT_MILLIS = 1000;

  private static final class Entry {
    final List<Call.Use> uses = new ArrayList<>(1);
    boolean heard;
    int repeats;
    long nextRepeat;

    void replace(Call.Use old, Call.Use use) {
      uses.remove(old);
      if (uses.size() == MAX_USES) {
        Call.Use mute = uses.stream().filter(other -> !other.call().hasMedia()).findFirst().orElse(uses.get(0));
        uses.remove(mute);
      }
      uses.add(use);
    }
  }

  private final Map<Endpoint, Entry> entries = new LinkedHashMap<>();
  private final Map<Call, Map<Endpoint, Call.Use>> ofCalls = new HashMap<>();
  private final Recent<Endpoint, Long> dismissed = new Recent<>(MAX_DISMISSED);
  private final Consumer<Command> sniffers;

  Destinations(Consumer<Command> sniffers) {
    this.sniffers = sniffers;
  }

  /** Makes these the destinations of the call, in place of those it had. New ones are asked for before old ones go. */
  void update(Call call, Map<Endpoint, Call.Use> wanted, long now) {
    Map<Endpoint, Call.Use> before = ofCalls.getOrDefault(call, Map.of());
    wanted.forEach((endpoint, use) -> {
      Call.Use old = before.get(endpoint);
      if (!use.equals(old)) {
        Entry entry = entries.get(endpoint);
        if (entry == null) {
          entry = new Entry();
          entry.nextRepeat = now + REPEAT_MILLIS;
          entries.put(endpoint, entry);
          sniffers.accept(Command.add(endpoint));
        }
        entry.replace(old, use);
      }
    });
    before.forEach((endpoint, use) -> {
      if (!wanted.containsKey(endpoint)) {
        Entry entry = entries.get(endpoint);
        if (entry != null && entry.uses.remove(use) && entry.uses.isEmpty()) {
          entries.remove(endpoint);
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

  private void dismiss(Endpoint endpoint, long now) {
    dismissed.renew(endpoint, now);
    sniffers.accept(Command.remove(endpoint));
  }

  /**
   * Whose media it is that was sent from one address to another; null when nobody's is. Of several calls the one whose
   * other party receives at the source has the best claim (most telephones send from where they receive), then the
   * newest.
   */
  Call.Use find(Endpoint destination, Endpoint source) {
    Entry entry = entries.get(destination);
    if (entry == null) {
      return null;
    }
    entry.heard = true;
    int newest = entry.uses.size() - 1;
    for (int i = newest; i >= 0; i--) {
      Call.Use use = entry.uses.get(i);
      if (ofCalls.get(use.call()).containsKey(source)) {
        return use;
      }
    }
    return entry.uses.get(newest);
  }

  /**
   * The sniffer forwards what no call uses: it missed the command, or the recorder was started anew. What was still
   * under way when the command was sent is no reason to repeat it.
   */
  void unwanted(Endpoint endpoint, long now) {
    Long last = dismissed.get(endpoint);
    if (last == null || now - last >= REPEAT_MILLIS) {
      dismiss(endpoint, now);
    }
  }

  /** Asks a sniffer for everything: its list is empty. */
  void resend(Consumer<Command> anew) {
    entries.keySet().forEach(endpoint -> anew.accept(Command.add(endpoint)));
  }

  /**
   * Where commands can get lost, asks again for destinations that nothing has come from, a few times: an entry that was
   * there already appears twice in the sniffer's list, which does no harm, and goes when the other goes.
   */
  void repeat(long now) {
    entries.forEach((endpoint, entry) -> {
      if (!entry.heard && entry.repeats < MAX_REPEATS && now >= entry.nextRepeat) {
        entry.repeats++;
        entry.nextRepeat = now + (REPEAT_MILLIS << entry.repeats);
        sniffers.accept(Command.add(endpoint));
      }
    });
  }
}
