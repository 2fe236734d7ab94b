package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import java.nio.ByteBuffer;
import java.util.Arrays;

/**
 * Frames that are collected for a message. A capture time frame is added only where the time changes: it holds for all
 * frames up to the next one. Before a frame that came late there are two: when it came, and when it was captured.
 */
final class Body {
  private static final int SMALLEST = 1024;
  private static final long NONE = -1;
  private static final long MICROS = 1000;
  /** A body begins with a capture time, so the time before it does not matter. */
  private static final long ANY_TIME = 1;

  private byte[] bytes = new byte[SMALLEST];
  private int length;
  private long time = NONE;

  /** Returns the length in bytes. */
  int length() {
    return length;
  }

  /** Returns the most length after a frame is added. */
  int lengthWith(FrameCursor frame) {
    return length + 2 * timeLength(frame) + frame.end() - frame.start();
  }

  /**
   * Adds a frame with its time of capture in milliseconds since 1970.
   *
   * @param heldUntil see {@link FrameCursor#heldUntil}
   */
  void add(FrameCursor frame, long captured, long heldUntil) {
    int size = frame.end() - frame.start();
    reserve(2 * timeLength(frame) + size);
    if (heldUntil > 0) {
      addTime(frame, heldUntil);
    }
    if (captured != time || heldUntil > 0) {
      time = captured;
      addTime(frame, captured);
    }
    System.arraycopy(frame.bytes(), frame.start(), bytes, length, size);
    length += size;
  }

  /** Adds a capture time frame with the addresses of a frame, which follow its length and protocol. */
  private void addTime(FrameCursor frame, long captured) {
    int header = frame.payload() - frame.start();
    int size = timeLength(frame);
    int protocol = frame.isIpv6() ? Frame.CAPTURE_TIME | Frame.IPV6 : Frame.CAPTURE_TIME;
    System.arraycopy(frame.bytes(), frame.start(), bytes, length, header);
    ByteBuffer.wrap(bytes, length, size).putShort((short) size).put((byte) protocol)
        .putLong(length + header, captured * MICROS);
    length += size;
  }

  private static int timeLength(FrameCursor frame) {
    return frame.payload() - frame.start() + Long.BYTES;
  }

  /** Adds the content of another body. */
  void add(Body other) {
    reserve(other.length);
    System.arraycopy(other.bytes, 0, bytes, length, other.length);
    length += other.length;
    endTime();
  }

  /** Makes the next frame get a capture time frame. */
  void endTime() {
    time = NONE;
  }

  /** Returns a cursor before the first frame. The content must not change meanwhile. */
  FrameCursor frames() {
    return frames(bytes, 0, length);
  }

  /** Returns a cursor before the first frame of a part of an array that was the content of a body. */
  static FrameCursor frames(byte[] content, int from, int to) {
    return new FrameCursor(new FrameBlock(content, from, to, 0, 0, 0, ANY_TIME));
  }

  /** Returns a copy of the content. */
  byte[] copy() {
    return Arrays.copyOf(bytes, length);
  }

  /** Removes the content. */
  void clear() {
    length = 0;
    endTime();
  }

  private void reserve(int more) {
    if (length + more > bytes.length) {
      bytes = Arrays.copyOf(bytes, Math.max(2 * bytes.length, length + more));
    }
  }
}
