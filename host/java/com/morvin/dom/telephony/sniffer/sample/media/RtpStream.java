package com.morvin.dom.telephony.sniffer.sample.media;

import java.util.Map;
import java.util.TreeMap;
import java.util.function.Consumer;

/** The packets of one source put in order: duplicates dropped, missing ones waited for a little, then counted. */
public final class RtpStream {
  /** A packet that arrived, and when. */
  public record Arrival(RtpPacket packet, Codec codec, long time) {}

  /** How many packets are held back while an earlier one is missing. */
  private static final int REORDER_DEPTH = 16;

  // RFC 3550, A.1: a jump beyond these is believed when the packet after it follows on.
  private static final int MAX_DROPOUT = 3000;
  private static final int MAX_MISORDER = 100;

  private final TreeMap<Long, Arrival> early = new TreeMap<>();
  private Arrival suspect;
  private long next = -1;
  private long received;
  private long lost;

  /** Passes on what is due now, in order. */
  public void accept(Arrival arrival, Consumer<Arrival> inOrder) {
    int sequence = arrival.packet.sequence();
    if (next < 0) {
      next = 0x10000L + sequence;
    }
    int distance = (short) (sequence - (int) next);
    if (distance > MAX_DROPOUT || distance < -MAX_MISORDER) {
      if (suspect == null || sequence != (suspect.packet.sequence() + 1 & 0xffff)) {
        suspect = arrival;
        return;
      }
      Arrival first = suspect;
      drain(inOrder);
      next = 0x10000L + first.packet.sequence();
      accept(first, inOrder);
      distance = (short) (sequence - (int) next);
    }
    suspect = null;
    if (distance < 0 || early.putIfAbsent(next + distance, arrival) != null) {
      return;
    }
    received++;
    while (!early.isEmpty() && (early.firstKey() == next || early.size() > REORDER_DEPTH)) {
      release(inOrder);
    }
  }

  /** Passes on what is still held back. */
  public void drain(Consumer<Arrival> inOrder) {
    while (!early.isEmpty()) {
      release(inOrder);
    }
  }

  private void release(Consumer<Arrival> inOrder) {
    Map.Entry<Long, Arrival> first = early.pollFirstEntry();
    lost += first.getKey() - next;
    next = first.getKey() + 1;
    inOrder.accept(first.getValue());
  }

  /** Packets that arrived, each counted once. */
  public long received() {
    return received;
  }

  /** Packets that never came, or came too late. */
  public long lost() {
    return lost;
  }
}
