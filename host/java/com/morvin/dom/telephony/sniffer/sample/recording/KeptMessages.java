package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.storage.RunningCalls.TimedFrame;
import java.util.ArrayList;
import java.util.List;
import java.util.function.Consumer;

/** Messages of a call that take a limited memory: the first ones, which begin the call, and the last ones. */
final class KeptMessages {
  private static final int FIRST = 4;
  /** Approximate memory of a message in addition to its content, in bytes. */
  private static final int OVERHEAD = 200;

  private final int maxBytes;
  private final List<TimedFrame> messages = new ArrayList<>();
  private int bytes;

  /** Keeps messages with a memory of so many bytes. */
  KeptMessages(int maxBytes) {
    this.maxBytes = maxBytes;
  }

  void add(TimedFrame message) {
    messages.add(message);
    bytes += size(message);
    while (bytes > maxBytes) {
      bytes -= size(messages.remove(Math.min(FIRST, messages.size() - 1)));
    }
  }

  private static int size(TimedFrame message) {
    return message.frame().payload().length + OVERHEAD;
  }

  void forEach(Consumer<TimedFrame> action) {
    messages.forEach(action);
  }

  /** Removes the messages and returns them. */
  List<TimedFrame> takeAll() {
    List<TimedFrame> all = List.copyOf(messages);
    messages.clear();
    bytes = 0;
    return all;
  }
}
