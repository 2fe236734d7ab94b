package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import java.util.EnumMap;
import java.util.Map;

/** The media that was received for a call: the times and the source of each direction. */
final class MediaFlow {
  private static final class Stream {
    private Moment first;
    private Moment last;
    private Endpoint source;
    private int fromSource;
  }

  private long packets;
  private final Map<Direction, Stream> streams = new EnumMap<>(Direction.class);

  MediaFlow() {
    for (Direction direction : Direction.values()) {
      streams.put(direction, new Stream());
    }
  }

  /** Records a packet. */
  void count(Direction direction, Endpoint source, Moment now) {
    packets++;
    Stream stream = streams.get(direction);
    if (stream.first == null) {
      stream.first = now;
    }
    stream.last = now;
    stream.fromSource = source.equals(stream.source) ? stream.fromSource + 1 : 1;
    stream.source = source;
  }

  /** Adds the media of another call, whose directions may be exchanged. */
  void add(MediaFlow other, boolean turned) {
    packets += other.packets;
    streams.forEach((direction, stream) -> {
      Stream added = other.streams.get(direction.turned(turned));
      if (added.last != null) {
        stream.first = stream.first == null || stream.first.since(added.first) > 0 ? added.first : stream.first;
        if (added.last.latest(stream.last) == added.last) {
          stream.last = added.last;
          stream.source = added.source;
          stream.fromSource = added.fromSource;
        }
      }
    });
  }

  /** Returns the number of packets of both directions. */
  long packets() {
    return packets;
  }

  /** Whether media of either direction was received. */
  boolean exists() {
    return last() != null;
  }

  /** Returns the time of the last packet of either direction; null when there was none. */
  Moment last() {
    Moment caller = streams.get(Direction.FROM_CALLER).last;
    Moment callee = streams.get(Direction.FROM_CALLEE).last;
    return caller == null ? callee : caller.latest(callee);
  }

  /**
   * Returns the source of the last packets of a direction; null when fewer than the given number came from it in a row.
   */
  Endpoint steadySource(Direction direction, int packets) {
    Stream stream = streams.get(direction);
    return stream.fromSource >= packets ? stream.source : null;
  }

  /** Returns how long media has been received in one direction only, in milliseconds. */
  long oneSidedMillis(Direction direction, Moment now) {
    Moment first = streams.get(direction).first;
    return first == null ? 0 : now.since(first.latest(streams.get(direction.opposite()).last));
  }
}
