package com.morvin.dom.telephony.sniffer.sample.signalling;

import java.util.LinkedHashMap;
import java.util.Map;

/** A map that removes its oldest entry when it is full. */
final class BoundedMap<K, V> extends LinkedHashMap<K, V> {
  private static final long serialVersionUID = 1;

  private final int capacity;

  BoundedMap(int capacity) {
    this.capacity = capacity;
  }

  /** Adds an entry as the newest one, even when the map has the key already. */
  void putLast(K key, V value) {
    remove(key);
    put(key, value);
  }

  @Override
  protected boolean removeEldestEntry(Map.Entry<K, V> eldest) {
    return size() > capacity;
  }
}
