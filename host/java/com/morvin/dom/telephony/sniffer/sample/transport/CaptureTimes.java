package com.morvin.dom.telephony.sniffer.sample.transport;

import java.nio.ByteBuffer;

/** Assigns each capture time frame of one sniffer to the frame that follows it. */
public final class CaptureTimes {
  private Frame captureTime;

  /**
   * Takes the next frame and returns its time of capture in milliseconds since 1970.
   *
   * @return 0 when the time is not known; -1 when the frame is a capture time frame, which is only for this class
   */
  public long of(Frame frame) {
    if (frame.protocol() == Frame.CAPTURE_TIME) {
      captureTime = frame;
      return -1;
    }
    Frame previous = captureTime;
    captureTime = null;
    // Over UDP the frame that the capture time belongs to can be lost.
    boolean belongs = previous != null && previous.destination().equals(frame.destination())
        && previous.source().equals(frame.source());
    return belongs ? Math.max(0, ByteBuffer.wrap(previous.payload()).getLong() / 1000) : 0;
  }
}
