package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import java.util.List;

/**
 * Frames of the calls of one partition in one message of the broker; see docs/recorder-protocol.md.
 *
 * @param partition selects the queue
 * @param continued the session of the front before its restart; empty when there is none
 * @param recaps the repeated signalling of calls at the start of the body, in this order
 * @param media whether there is media, which is dropped first
 * @param frames the number of frames without the repeated ones
 * @param body the frames
 */
record Message(MessageId id, Partition partition, String continued, List<Recap> recaps, boolean media, int frames,
    byte[] body) {
  /** The content type of a message. */
  static final String CONTENT_TYPE = "application/vnd.voip-sniffer.frames; version=2";
  /** A frame is added to a body only up to this length in bytes. */
  static final int MAX_BODY = 64 << 10;
  /** The content type of the messages of earlier versions, which hold the frames of one call. */
  static final String EARLIER_TYPE = "application/vnd.voip-sniffer.frames; version=1";
  /** The header with the length of the repeated signalling in such a message. */
  static final String EARLIER_RECAP = "recap";
  /** The header with the recaps in the form of {@link Recap#text}. */
  static final String RECAPS = "recaps";
  /** The header with the session of the front before its restart. */
  static final String CONTINUES = "continues";

  /** Returns the message without its media. */
  Message withoutMedia() {
    int start = Recap.bytes(recaps);
    Body kept = new Body();
    int count = 0;
    FrameCursor frame = Body.frames(body, start, body.length);
    while (frame.next()) {
      if (frame.protocol() != Frame.RTP) {
        kept.add(frame, frame.captured(), frame.heldUntil());
        count++;
      }
    }
    byte[] shorter = new byte[start + kept.length()];
    System.arraycopy(body, 0, shorter, 0, start);
    System.arraycopy(kept.copy(), 0, shorter, start, kept.length());
    return new Message(id, partition, continued, recaps, false, Math.min(frames, count), shorter);
  }
}
