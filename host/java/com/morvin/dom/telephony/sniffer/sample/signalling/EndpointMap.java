package com.morvin.dom.telephony.sniffer.sample.signalling;

/**
 * A map from endpoints to objects. Each frame of media is looked up, so the keys are primitive and lie side by side: an
 * open hash table with linear probing, at most half full.
 */
final class EndpointMap<V> {
  private static final int SMALLEST = 16;
  /** A multiplier that spreads keys that differ in a few bits (Fibonacci hashing). */
  private static final long SPREAD = 0x9e3779b97f4a7c15L;

  private long[] keys = new long[SMALLEST];
  private Object[] values = new Object[SMALLEST];
  private int size;

  /** Returns the object of an endpoint, see Endpoint.key; null when there is none. */
  @SuppressWarnings("unchecked")
  V get(long key) {
    return (V) values[find(key)];
  }

  void put(long key, V value) {
    int place = find(key);
    size += values[place] == null ? 1 : 0;
    keys[place] = key;
    values[place] = value;
    if (2 * size > keys.length) {
      grow();
    }
  }

  void remove(long key) {
    int free = find(key);
    if (values[free] == null) {
      return;
    }
    size--;
    int mask = keys.length - 1;
    // An entry moves to the free place unless its search begins between the two places.
    for (int place = free + 1 & mask; values[place] != null; place = place + 1 & mask) {
      if ((place - home(keys[place]) & mask) >= (place - free & mask)) {
        keys[free] = keys[place];
        values[free] = values[place];
        free = place;
      }
    }
    keys[free] = 0;
    values[free] = null;
  }

  /** Returns the place of a key, or the free one where it belongs. */
  private int find(long key) {
    int mask = keys.length - 1;
    int place = home(key);
    while (values[place] != null && keys[place] != key) {
      place = place + 1 & mask;
    }
    return place;
  }

  private int home(long key) {
    return (int) (key * SPREAD >>> Long.numberOfLeadingZeros(keys.length - 1));
  }

  @SuppressWarnings("unchecked")
  private void grow() {
    long[] oldKeys = keys;
    Object[] oldValues = values;
    keys = new long[2 * oldKeys.length];
    values = new Object[keys.length];
    size = 0;
    for (int i = 0; i < oldKeys.length; i++) {
      if (oldValues[i] != null) {
        put(oldKeys[i], (V) oldValues[i]);
      }
    }
  }
}
