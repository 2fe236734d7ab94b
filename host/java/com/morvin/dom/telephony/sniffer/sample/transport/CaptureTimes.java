package com.morvin.dom.telephony.sniffer.sample.transport;

import java.nio.ByteBuffer;

/** Joins the frames that tell capture times with those they precede. One for each sniffer. */
public final class CaptureTimes {
  private Frame announcement;

  /** The capture time of a frame in milliseconds, 0 when it was not told; -1 of a frame that tells one. */
  public long of(Frame frame) {
    if (frame.protocol() == Frame.CAPTURE_TIME) {
      announcement = frame;
      return -1;
    }
    Frame told = announcement;
    announcement = null;
    // Over UDP the frame that was meant can be missing.
    boolean meant = told != null && told.destination().equals(frame.destination())
        && told.source().equals(frame.source());
    return meant ? Math.max(0, ByteBuffer.wrap(told.payload()).getLong() / 1000) : 0;
  }
}
