package com.morvin.dom.telephony.sniffer.sample.transport;

import java.net.ProtocolException;
import java.nio.ByteBuffer;

/**
 * Collects the bytes of one sniffer and cuts them into blocks of complete frames. The rest of a frame, and a capture
 * time frame at the end, stay for the next block. Belongs to the thread that receives.
 */
final class BlockBuffer {
  /** Four of the longest frames: more than what arrives while the reader pauses. */
  private static final int SIZE = 256 << 10;

  private final ByteBuffer bytes = ByteBuffer.allocateDirect(SIZE);

  /** Returns the buffer with the room for further bytes. */
  ByteBuffer room() {
    return bytes;
  }

  /**
   * Removes the complete frames.
   *
   * @param number the number of the first frame
   * @return null when there is no complete frame
   * @throws ProtocolException when the bytes are no frames
   */
  FrameBlock take(int sniffer, long number) throws ProtocolException {
    int end = 0;
    int complete = 0;
    for (int next = Frame.end(bytes, end); next > 0; next = Frame.end(bytes, end)) {
      complete = (bytes.get(end + Wire.PROTOCOL) & ~Frame.IPV6) == Frame.CAPTURE_TIME ? complete : next;
      end = next;
    }
    if (complete == 0 && bytes.remaining() < Frame.MAX_LENGTH) {
      complete = end;  // capture times without frames must not fill the buffer
    }
    if (complete == 0) {
      return null;
    }
    byte[] frames = new byte[complete];
    bytes.flip().get(frames);
    bytes.compact();
    return new FrameBlock(frames, 0, complete, sniffer, number);
  }
}
