package com.morvin.dom.telephony.sniffer.sample.media;

import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;

/** A growing list that is saved in increments: what was saved before is not saved again. */
final class SavedList<T> {
  /** Writes an item. */
  interface Writer<T> {
    void write(T item, DataOutput out) throws IOException;
  }

  /** Reads an item. */
  interface Reader<T> {
    T read(DataInput in) throws IOException;
  }

  private final List<T> items = new ArrayList<>();
  private int saved;

  /** Returns the items: a view. */
  List<T> items() {
    return Collections.unmodifiableList(items);
  }

  int size() {
    return items.size();
  }

  void add(T item) {
    items.add(item);
  }

  /** Saves all items, or those since the last time. */
  void save(DataOutput out, boolean whole, Writer<T> writer) throws IOException {
    int kept = whole ? 0 : saved;
    out.writeInt(kept);
    out.writeInt(items.size() - kept);
    for (T item : items.subList(kept, items.size())) {
      writer.write(item, out);
    }
    saved = items.size();
  }

  /** Restores what was saved, on top of what was restored before. */
  void restore(DataInput in, Reader<T> reader) throws IOException {
    int kept = in.readInt();
    items.subList(kept, items.size()).clear();
    for (int count = in.readInt(); count > 0; count--) {
      items.add(reader.read(in));
    }
  }
}
