package com.morvin.dom.telephony.sniffer.sample.media;

import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.Arrays;

/**
 * The packets of a stream that wait for others before them, in the order of their numbers. There are few, and a new one
 * is mostly the last, so they are in arrays: after each lost packet all of them are looked at again.
 */
final class EarlyPackets {
  private static final int FEW = 4;

  private long[] numbers = {};
  private RtpPacket[] packets = {};
  private int size;

  int size() {
    return size;
  }

  long firstNumber() {
    return numbers[0];
  }

  RtpPacket last() {
    return packets[size - 1];
  }

  /** Returns the packet with a number, or null. */
  RtpPacket get(long number) {
    int at = after(number) - 1;
    return at >= 0 && numbers[at] == number ? packets[at] : null;
  }

  /** Adds a packet, or replaces the one with its number. */
  void put(long number, RtpPacket packet) {
    int at = after(number);
    if (at > 0 && numbers[at - 1] == number) {
      packets[at - 1] = packet;
      return;
    }
    if (size == numbers.length) {
      int room = Math.max(FEW, 2 * size);
      numbers = Arrays.copyOf(numbers, room);
      packets = Arrays.copyOf(packets, room);
    }
    System.arraycopy(numbers, at, numbers, at + 1, size - at);
    System.arraycopy(packets, at, packets, at + 1, size - at);
    numbers[at] = number;
    packets[at] = packet;
    size++;
  }

  RtpPacket removeFirst() {
    RtpPacket first = packets[0];
    size--;
    System.arraycopy(numbers, 1, numbers, 0, size);
    System.arraycopy(packets, 1, packets, 0, size);
    packets[size] = null;
    return first;
  }

  /** Returns the approximate memory in bytes. */
  long memory() {
    return RtpPacket.memory(Arrays.asList(packets).subList(0, size));
  }

  /** Returns the index after the last packet whose number is not greater. */
  private int after(long number) {
    int at = size;
    while (at > 0 && numbers[at - 1] > number) {
      at--;
    }
    return at;
  }

  void save(DataOutput out) throws IOException {
    out.writeInt(size);
    for (int i = 0; i < size; i++) {
      out.writeLong(numbers[i]);
      packets[i].save(out);
    }
  }

  void restore(DataInput in) throws IOException {
    for (int count = in.readInt(); count > 0; count--) {
      put(in.readLong(), RtpPacket.restore(in));
    }
  }
}
