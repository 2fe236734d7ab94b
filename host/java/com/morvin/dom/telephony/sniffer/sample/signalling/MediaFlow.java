package com.morvin.dom.telephony.sniffer.sample.signalling;

/** The media that was received for a call: the times and the source of each direction. */
final class MediaFlow {
  /** One direction. Its values are numbers: a reference to a new object for each packet would cost more. */
  static final class Stream {
    private long packets;
    private long first;
    private long lastSteady;
    private long lastStamp;
    private long source;
    private int fromSource;
    private boolean known;
    private long nextCheck;

    /** Records a packet from a source; see {@link com.morvin.dom.telephony.sniffer.sample.transport.Endpoint#key}. */
    void count(long from, Moment now) {
      if (packets++ == 0) {
        first = now.steady();
        nextCheck = first;
      }
      lastSteady = now.steady();
      lastStamp = now.stamp();
      if (from == source) {
        fromSource++;
      } else {
        source = from;
        fromSource = 1;
        known = false;
      }
    }

    long touch() {
      return source;
    }

    /** Whether media was received. */
    boolean exists() {
      return packets > 0;
    }

    /** Returns the time of the last packet; null when there was none. */
    private Moment last() {
      return exists() ? new Moment(lastSteady, lastStamp) : null;
    }

    /**
     * Whether the given number of packets came from the same source in a row, and the source is not marked as known.
     * False for a time after {@link #checkAgain}.
     */
    boolean hasNewSource(int packets) {
      return !known && fromSource >= packets && lastSteady >= nextCheck;
    }

    /** Postpones {@link #hasNewSource}. */
    void checkAgain(long millis) {
      nextCheck = lastSteady + millis;
    }

    /** Marks the source of the last packet as known. */
    void knowSource() {
      known = true;
    }

    private void add(Stream other) {
      if (!other.exists()) {
        return;
      }
      first = exists() ? Math.min(first, other.first) : other.first;
      if (!exists() || other.lastSteady >= lastSteady) {
        lastSteady = other.lastSteady;
        lastStamp = other.lastStamp;
        source = other.source;
        fromSource = other.fromSource;
      }
      packets += other.packets;
    }
  }

  private final Stream fromCaller = new Stream();
  private final Stream fromCallee = new Stream();

  /** Returns one direction. */
  Stream of(Direction direction) {
    return direction == Direction.FROM_CALLER ? fromCaller : fromCallee;
  }

  /** Adds the media of another call, whose directions may be exchanged. */
  void add(MediaFlow other, boolean turned) {
    for (Direction direction : Direction.values()) {
      of(direction).add(other.of(direction.turned(turned)));
    }
  }

  /** Whether media of either direction was received. */
  boolean exists() {
    return packets() > 0;
  }

  /** Returns the number of packets of both directions. */
  long packets() {
    return fromCaller.packets + fromCallee.packets;
  }

  /** Returns the time of the last packet of either direction; null when there was none. */
  Moment last() {
    Moment caller = fromCaller.last();
    return caller == null ? fromCallee.last() : caller.latest(fromCallee.last());
  }

  /**
   * Whether the media of each direction was captured after a time; see {@link Moment#stamp}.
   *
   * @param both whether a direction without media counts as well
   */
  boolean isLaterThan(long stamp, boolean both) {
    return exists() && isLaterThan(fromCaller, stamp, both) && isLaterThan(fromCallee, stamp, both);
  }

  private static boolean isLaterThan(Stream stream, long stamp, boolean both) {
    return stream.exists() ? stream.lastStamp > stamp : !both;
  }

  /** Makes the sources of both directions new ones. */
  void forgetSources() {
    fromCaller.known = false;
    fromCallee.known = false;
  }

  /** Returns how long media has been received in one direction only, in milliseconds. */
  long oneSidedMillis(Direction direction, Moment now) {
    Stream stream = of(direction);
    Stream opposite = of(direction.opposite());
    return !stream.exists() ? 0
        : now.steady() - (opposite.exists() ? Math.max(stream.first, opposite.lastSteady) : stream.first);
  }
}
