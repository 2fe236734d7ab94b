package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.util.concurrent.atomic.AtomicInteger;

/**
 * Frames of one call in one message of the broker; see docs/recorder-protocol.md.
 *
 * @param generation the generation of queues that the call is assigned to; 0 before it is assigned. All messages of the
 *     call share the object
 * @param key the routing key; it is the same for a call on all machines, and the broker selects the recorder by it
 * @param recap the length in bytes of the repeated signalling at the start of the body
 * @param last whether the call has ended
 * @param signalling whether the message holds new signalling or the end of the call, and so is dropped last
 * @param frames the number of frames without the repeated ones
 * @param body the frames, each after a frame with its capture time
 */
record Message(MessageId id, AtomicInteger generation, String key, int recap, boolean last, boolean signalling,
    int frames, byte[] body) {
  /** The content type of a message. */
  static final String CONTENT_TYPE = "application/vnd.voip-sniffer.frames; version=1";
  /** A frame is added to a body only up to this length in bytes. */
  static final int MAX_BODY = 64 << 10;
  /** The header with the length of the repeated signalling. */
  static final String RECAP = "recap";
  /** The header that marks the last message of a call. */
  static final String LAST = "last";
}
