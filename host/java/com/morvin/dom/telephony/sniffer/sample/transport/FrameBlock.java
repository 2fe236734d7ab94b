package com.morvin.dom.telephony.sniffer.sample.transport;

import java.net.ProtocolException;
import java.nio.ByteBuffer;
import java.util.Arrays;

/**
 * Complete frames of one sniffer in their wire form, one after the other, as they were read together. So the frames
 * need no objects of their own; see {@link FrameCursor}. A capture time frame is in the same block as the frame that it
 * belongs to.
 *
 * @param bytes not copied: nobody changes it
 * @param from the index of the first frame
 * @param to the index after the last frame
 * @param sniffer the number of the sniffer; see {@link Transport}
 * @param number the number of the first frame; the other frames, without capture time frames, have the next ones
 * @param steady when the block was read, by the {@link SteadyClock}; 0 when the frames keep the time of their capture
 *     by the clock of the sniffer
 * @param timeOfDay when the block was read, in milliseconds since 1970; when {@link #sharesTimes}, the time of the
 *     frames before the first capture time frame
 */
public record FrameBlock(byte[] bytes, int from, int to, int sniffer, long number, long steady, long timeOfDay) {
  /** Makes a block whose frames keep the time of their capture by the clock of the sniffer. */
  public FrameBlock(byte[] bytes, int from, int to, int sniffer, long number) {
    this(bytes, from, to, sniffer, number, 0, 0);
  }

  /** Makes a block with one frame. */
  public static FrameBlock of(Frame frame, int sniffer, long number) {
    byte[] bytes = frame.bytes();
    return new FrameBlock(bytes, 0, bytes.length, sniffer, number);
  }

  /** Returns the block as read at this moment. */
  public FrameBlock readBy(SteadyClock clock) {
    long before = clock.millis();
    long timeOfDay = clock.timeOfDay();
    long after = clock.millis();
    // An interruption between the two would move the time of all frames. It is rare, so one more try is enough.
    return after - before <= 1 ? new FrameBlock(bytes, from, to, sniffer, number, before, timeOfDay)
        : new FrameBlock(bytes, from, to, sniffer, number, clock.millis(), clock.timeOfDay());
  }

  /**
   * Returns a block with the frames of a part of an array. When it begins with a capture time frame, such a time holds
   * for all frames up to the next one.
   *
   * @throws ProtocolException when the part does not consist of complete frames
   */
  public static FrameBlock of(byte[] bytes, int from, int to) throws ProtocolException {
    ByteBuffer frames = ByteBuffer.wrap(bytes).position(to);
    for (int at = from; at < to; at = Frame.end(frames, at)) {
      if (Frame.end(frames, at) == 0) {
        throw new ProtocolException("the last frame is cut off");
      }
    }
    boolean shared = from < to && Wire.protocol(bytes, from) == Frame.CAPTURE_TIME;
    return new FrameBlock(bytes, from, to, 0, 0, 0, shared ? Wire.i64(bytes, Wire.payload(bytes, from)) / 1000 : 0);
  }

  /** Returns the block with other numbers of its frames. */
  public FrameBlock numbered(long first) {
    return new FrameBlock(bytes, from, to, sniffer, first, steady, timeOfDay);
  }

  /** Whether a capture time holds for all frames up to the next one, by the clock of the sniffer. */
  boolean sharesTimes() {
    return steady == 0 && timeOfDay > 0;
  }

  /** Returns the length of the frames in bytes. */
  public int length() {
    return to - from;
  }

  /** Returns the number of frames without capture time frames. */
  public int count() {
    FrameCursor cursor = new FrameCursor(this);
    int count = 0;
    while (cursor.next()) {
      count++;
    }
    return count;
  }

  /** Returns the block without its first frames. */
  public FrameBlock skip(int frames) {
    FrameCursor cursor = new FrameCursor(this);
    for (int i = 0; i < frames && cursor.next(); i++) {
      // The cursor moves.
    }
    return new FrameBlock(bytes, cursor.end(), to, sniffer, number + frames, steady,
        sharesTimes() ? cursor.captured() : timeOfDay);
  }

  /** Returns the block without media. Its frames have other numbers. */
  FrameBlock signalling() {
    byte[] kept = new byte[length()];
    int length = 0;
    FrameCursor cursor = new FrameCursor(this);
    for (int start = from; cursor.next(); start = cursor.end()) {
      if (cursor.protocol() != Frame.RTP) {
        System.arraycopy(bytes, start, kept, length, cursor.end() - start);
        length += cursor.end() - start;
      }
    }
    return new FrameBlock(Arrays.copyOf(kept, length), 0, length, sniffer, number, steady, timeOfDay);
  }
}
