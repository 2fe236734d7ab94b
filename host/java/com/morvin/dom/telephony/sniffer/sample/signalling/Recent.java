package com.morvin.dom.telephony.sniffer.sample.signalling;

import java.util.LinkedHashMap;
import java.util.Map;

/** A map that forgets what was put first when it has become too large. */
final class Recent<K, V> extends LinkedHashMap<K, V> {
  private static final long serialVersionUID = 1;

  private final int capacity;

  Recent(int capacity) {
    this.capacity = capacity;
  }

  /** As {@link #put}, and the key counts as put last. */
  void renew(K key, V value) {
    remove(key);
    put(key, value);
  }

  @Override
  protected boolean removeEldestEntry(Map.Entry<K, V> eldest) {
    return size() > capacity;
  }
}
