package com.morvin.dom.telephony.sniffer.sample.transport;

/**
 * Walks through the frames of a block in place. After {@link #next} it shows one frame; capture time frames only give
 * the times of the frame that follows them.
 */
public final class FrameCursor {
  /** The sniffer holds frames for at most a minute, so an older time comes from a wrong clock. */
  private static final long MAX_AGE_MILLIS = 150_000;

  private FrameBlock block;
  private byte[] bytes;
  private int start;
  private int payload;
  private int end;
  private long captured;
  /** The index of the capture time frame before that of the frame; -1 when there is none. */
  private int held = -1;
  private long number;

  /** Makes a cursor before the first frame of a block. */
  public FrameCursor(FrameBlock block) {
    begin(block);
  }

  /** Moves before the first frame of a block. */
  public void begin(FrameBlock next) {
    captured = next.sharesTimes() ? next.timeOfDay() : 0;
    block = next;
    bytes = next.bytes();
    start = next.from();
    end = next.from();
    number = next.number() - 1;
  }

  /** Moves to the frame of another cursor. */
  public void begin(FrameCursor other) {
    block = other.block;
    bytes = other.bytes;
    start = other.start;
    payload = other.payload;
    end = other.end;
    captured = other.captured;
    held = other.held;
    number = other.number;
  }

  /** Moves to the next frame. Returns false when there is none. */
  public boolean next() {
    int time = -1;
    int before = -1;
    while (end < block.to()) {
      start = end;
      end = start + Wire.u16(bytes, start);
      if (Wire.protocol(bytes, start) != Frame.CAPTURE_TIME) {
        payload = Wire.payload(bytes, start);
        captured = block.sharesTimes() ? shared(time) : time < 0 ? 0 : captured(time);
        held = before;
        number++;
        return true;
      }
      before = time;
      time = start;
    }
    return false;
  }

  /** Returns the time in a capture time frame, or else that of the frame before. */
  private long shared(int time) {
    return time < 0 ? captured : stated(time);
  }

  /** Returns the time in a capture time frame. Over UDP the frame that it belongs to can be lost. */
  private long captured(int time) {
    boolean belongs = Wire.destination(bytes, time) == destination() && Wire.source(bytes, time) == source();
    return belongs ? stated(time) : 0;
  }

  private long stated(int time) {
    return Math.max(0, Wire.i64(bytes, Wire.payload(bytes, time)) / 1000);
  }

  /** Returns the array that holds the frame. */
  public byte[] bytes() {
    return bytes;
  }

  /** Returns the index of the frame. */
  public int start() {
    return start;
  }

  /** Returns the index of the payload. */
  public int payload() {
    return payload;
  }

  /** Returns the index after the frame. */
  public int end() {
    return end;
  }

  /** Returns the protocol, one of the constants of {@link Frame}. */
  public int protocol() {
    return Wire.protocol(bytes, start);
  }

  /** Whether the addresses are IPv6 addresses. */
  public boolean isIpv6() {
    return Wire.isIpv6(bytes, start);
  }

  /** Returns the destination; see {@link Endpoint#key}. */
  public long destination() {
    return Wire.destination(bytes, start);
  }

  /** Returns the source; see {@link Endpoint#key}. */
  public long source() {
    return Wire.source(bytes, start);
  }

  /** Returns the destination as an object. */
  public Endpoint destinationEndpoint() {
    return Wire.destinationOf(bytes, start);
  }

  /** Returns the source as an object. */
  public Endpoint sourceEndpoint() {
    return Wire.sourceOf(bytes, start);
  }

  /** Returns the number of the frame; see {@link Transport#acknowledge}. */
  public long number() {
    return number;
  }

  /** Returns the time of capture in milliseconds since 1970; 0 when it is not known. */
  public long captured() {
    return captured;
  }

  /**
   * Returns when a front got the frame, in milliseconds since 1970, if that was late: media of its call that was
   * captured before may be lost. Returns 0 when the frame came in time, or from a sniffer.
   */
  public long heldUntil() {
    return held < 0 || !block.sharesTimes() ? 0 : stated(held);
  }

  /** Whether the sniffer has stated the time of capture because the frame has left it late. */
  public boolean isDelayed() {
    return captured > 0 && !block.sharesTimes();
  }

  /**
   * Returns the time of capture by the {@link SteadyClock}: the stated time if that is plausible, or else the time when
   * the block was read. When the transport redelivers, returns the time by the clock of the sniffer.
   */
  public long time() {
    if (block.steady() == 0) {
      return captured;
    }
    return block.steady() - age();
  }

  /**
   * Returns the time of capture in milliseconds since 1970: the stated time if that is plausible, or else the time when
   * the block was read. Unlike {@link #time} it steps with the clock.
   */
  public long timeOfDay() {
    return block.timeOfDay() - age();
  }

  private long age() {
    long age = block.timeOfDay() - captured;
    return captured > 0 && age > 0 && age < MAX_AGE_MILLIS ? age : 0;
  }

  /** Returns a copy of the frame. */
  public Frame frame() {
    return Frame.copy(bytes, start, end);
  }
}
