package com.morvin.dom.telephony.sniffer.sample.media;

import java.util.ArrayList;
import java.util.Iterator;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.function.Consumer;

/**
 * RTP sources that wait for a place among those of a {@link Track}, with their first packets. In a flood of forged
 * sources each has a packet or two; a voice soon has more.
 */
final class Newcomers {
  // Limits against hostile traffic. A voice is found in a flood of 12,000 sources a second.
  private static final int MAX_SOURCES = 256;
  private static final int MAX_PACKETS = 1024;
  /** The packets of a second or so, after which there is a place for a voice. */
  private static final int MAX_HELD = 64;

  private record Key(int ssrc, long identity) {}

  /** The one that has sent last is the last one. */
  private final Map<Key, List<RtpPacket>> waiting = new LinkedHashMap<>(16, 0.75f, true);
  private int packets;
  private long ignored;

  /** Adds a packet. Returns the number of packets of its source. */
  int add(int ssrc, long identity, RtpPacket packet) {
    List<RtpPacket> held = waiting.computeIfAbsent(new Key(ssrc, identity), key -> new ArrayList<>(1));
    if (held.size() == MAX_HELD) {
      held.remove(0);
      packets--;
      ignored++;
    }
    held.add(packet.keep());
    packets++;
    Iterator<List<RtpPacket>> eldest = waiting.values().iterator();
    while (waiting.size() > MAX_SOURCES || packets > MAX_PACKETS) {
      int count = eldest.next().size();
      eldest.remove();
      packets -= count;
      ignored += count;
    }
    return held.size();
  }

  /** Removes a source, which has found a place. Returns its packets. */
  List<RtpPacket> take(int ssrc, long identity) {
    List<RtpPacket> held = waiting.remove(new Key(ssrc, identity));
    packets -= held == null ? 0 : held.size();
    return held == null ? List.of() : held;
  }

  /** Removes all sources. Passes on the packets of those with more than a number of them. */
  void drain(int few, Consumer<List<RtpPacket>> others) {
    for (List<RtpPacket> held : waiting.values()) {
      if (held.size() > few) {
        others.accept(held);
      } else {
        ignored += held.size();
      }
    }
    waiting.clear();
    packets = 0;
  }

  /** Drops all packets. */
  void clear() {
    ignored += packets;
    waiting.clear();
    packets = 0;
  }

  /** Returns the approximate memory in bytes. */
  long memory() {
    return waiting.values().stream().mapToLong(RtpPacket::memory).sum();
  }

  /** Returns the number of packets that were dropped. */
  long ignored() {
    return ignored;
  }
}
