package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;

/** The media that was received for a call: the times and the source of each direction. */
final class MediaFlow {
  private static final long RECENT_MILLIS = 1_000;

  private static final class Stream {
    private Moment first;
    private Moment last;
    private long source;
    private int fromSource;
    private boolean known;
  }

  private final Stream fromCaller = new Stream();
  private final Stream fromCallee = new Stream();

  private Stream of(Direction direction) {
    return direction == Direction.FROM_CALLER ? fromCaller : fromCallee;
  }

  /** Records a packet from a source; see {@link Endpoint#key}. */
  void count(Direction direction, long source, Moment now) {
    Stream stream = of(direction);
    if (stream.first == null) {
      stream.first = now;
    }
    stream.last = now;
    if (source == stream.source) {
      stream.fromSource++;
    } else {
      stream.source = source;
      stream.fromSource = 1;
      stream.known = false;
    }
  }

  /** Adds the media of another call, whose directions may be exchanged. */
  void add(MediaFlow other, boolean turned) {
    for (Direction direction : Direction.values()) {
      Stream stream = of(direction);
      Stream added = other.of(direction.turned(turned));
      if (added.last != null) {
        stream.first = stream.first == null || stream.first.since(added.first) > 0 ? added.first : stream.first;
        if (added.last.latest(stream.last) == added.last) {
          stream.last = added.last;
          stream.source = added.source;
          stream.fromSource = added.fromSource;
          stream.known = false;
        }
      }
    }
  }

  /** Whether media of either direction was received. */
  boolean exists() {
    return last() != null;
  }

  /** Returns the time of the last packet of either direction; null when there was none. */
  Moment last() {
    return fromCaller.last == null ? fromCallee.last : fromCaller.last.latest(fromCallee.last);
  }

  /** Whether the last packet of a direction came from the source, a short time ago. */
  boolean comesFrom(Direction direction, long source, Moment now) {
    Stream stream = of(direction);
    return stream.last != null && source == stream.source && now.since(stream.last) < RECENT_MILLIS;
  }

  /**
   * Whether the given number of packets of a direction came from the same source in a row, and the source is not marked
   * as known.
   */
  boolean hasNewSource(Direction direction, int packets) {
    Stream stream = of(direction);
    return stream.fromSource >= packets && !stream.known;
  }

  /** Returns the source of the last packet of a direction, and marks it as known. */
  Endpoint takeSource(Direction direction) {
    Stream stream = of(direction);
    stream.known = true;
    return Endpoint.of(stream.source);
  }

  /** Makes the sources of both directions new ones. */
  void forgetSources() {
    fromCaller.known = false;
    fromCallee.known = false;
  }

  /** Returns how long media of one direction has come without media of the other, in milliseconds. */
  long oneSidedMillis(Direction direction, Moment now) {
    Moment first = of(direction).first;
    return first == null ? 0 : now.since(first.latest(of(direction.opposite()).last));
  }
}
