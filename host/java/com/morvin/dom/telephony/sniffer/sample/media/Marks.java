package com.morvin.dom.telephony.sniffer.sample.media;

import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.Arrays;

/**
 * Places in a file, each with a value, in the order of the places. A mark takes 16 bytes. The marks are saved in
 * increments: what was saved before and has not changed is not saved again.
 */
final class Marks {
  /** The most marks of a list: 32 KB. The user of a list decides what becomes of the others. */
  static final int MOST = 2048;
  /** Each list may have as many; the memory of more comes from the {@link MediaPool}. */
  static final int USUAL = 64;
  private static final int FEW = 4;

  private long[] places = {};
  private long[] values = {};
  private int size;
  private int saved;

  int size() {
    return size;
  }

  boolean isFull() {
    return size >= MOST;
  }

  long place(int index) {
    return places[index];
  }

  long value(int index) {
    return values[index];
  }

  void add(long place, long value) {
    if (size == places.length) {
      int room = Math.max(FEW, 2 * size);
      places = Arrays.copyOf(places, room);
      values = Arrays.copyOf(values, room);
    }
    size++;
    set(size - 1, place, value);
  }

  void set(int index, long place, long value) {
    places[index] = place;
    values[index] = value;
    saved = Math.min(saved, index);
  }

  /** Removes all marks from an index on. */
  void truncate(int count) {
    size = count;
    saved = Math.min(saved, count);
  }

  /** Removes every second mark. Returns their number. */
  int thin() {
    int before = size;
    for (int i = 1; i < (size + 1) / 2; i++) {
      set(i, places[2 * i], values[2 * i]);
    }
    truncate((size + 1) / 2);
    trim();
    return before - size;
  }

  /** Whether there are more than usual. */
  boolean hasMany() {
    return size > USUAL;
  }

  /** Returns the memory beyond the usual in bytes. */
  long memory() {
    return (long) Math.max(0, places.length - USUAL) * 2 * Long.BYTES;
  }

  /** Gives unused memory back. */
  void trim() {
    places = Arrays.copyOf(places, size);
    values = Arrays.copyOf(values, size);
  }

  /** Saves all marks, or those since the last time. */
  void save(DataOutput out, boolean whole) throws IOException {
    int kept = whole ? 0 : saved;
    out.writeInt(kept);
    out.writeInt(size - kept);
    for (int i = kept; i < size; i++) {
      out.writeLong(places[i]);
      out.writeLong(values[i]);
    }
    saved = size;
  }

  /** Restores what was saved, on top of what was restored before. */
  void restore(DataInput in) throws IOException {
    int kept = in.readInt();
    int added = in.readInt();
    if (kept < 0 || kept > size || added < 0 || added > MOST - kept) {
      throw new IOException(added + " saved marks after " + kept + " of " + size);
    }
    truncate(kept);
    for (int i = 0; i < added; i++) {
      add(in.readLong(), in.readLong());
    }
  }
}
