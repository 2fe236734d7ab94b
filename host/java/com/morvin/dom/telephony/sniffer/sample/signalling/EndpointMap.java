package com.morvin.dom.telephony.sniffer.sample.signalling;

/**
 * A map from endpoints to objects that know their endpoint. Each frame of media is looked up, so the map is one array:
 * an open hash table with linear probing, at most half full.
 */
final class EndpointMap<V extends EndpointMap.Keyed> {
  private static final int SMALLEST = 16;
  /** A multiplier that spreads keys that differ in a few bits (Fibonacci hashing). */
  private static final long SPREAD = 0x9e3779b97f4a7c15L;

  /** Has an endpoint, given as Endpoint.key. */
  interface Keyed {
    long key();
  }

  private Keyed[] values = new Keyed[SMALLEST];
  private int size;

  /** Returns the object of an endpoint; null when there is none. */
  @SuppressWarnings("unchecked")
  V get(long key) {
    return (V) values[find(key)];
  }

  void put(V value) {
    set(value);
    if (2 * size > values.length) {
      Keyed[] old = values;
      values = new Keyed[2 * old.length];
      size = 0;
      for (Keyed one : old) {
        if (one != null) {
          set(one);
        }
      }
    }
  }

  private void set(Keyed value) {
    int place = find(value.key());
    size += values[place] == null ? 1 : 0;
    values[place] = value;
  }

  void remove(long key) {
    int free = find(key);
    if (values[free] == null) {
      return;
    }
    size--;
    int mask = values.length - 1;
    // An entry moves to the free place unless its search begins between the two places.
    for (int place = free + 1 & mask; values[place] != null; place = place + 1 & mask) {
      if ((place - home(values[place].key()) & mask) >= (place - free & mask)) {
        values[free] = values[place];
        free = place;
      }
    }
    values[free] = null;
  }

  /** Returns the place of a key, or the free one where it belongs. */
  private int find(long key) {
    int mask = values.length - 1;
    int place = home(key);
    while (values[place] != null && values[place].key() != key) {
      place = place + 1 & mask;
    }
    return place;
  }

  private int home(long key) {
    return (int) (key * SPREAD >>> Long.numberOfLeadingZeros(values.length - 1));
  }
}
