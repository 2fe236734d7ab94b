package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.util.concurrent.atomic.AtomicInteger;

/**
 * Some frames of one call, as they go through the broker in one piece: see docs/recorder-protocol.md.
 *
 * @param generation which set of queues the call is spread over; 0 while that is open
 * @param key what the call is known by wherever it is seen; it decides about the recorder
 * @param recap how many bytes at the beginning repeat signalling that earlier messages had
 * @param last whether the call has ended with it
 * @param signalling whether it says something that only signalling says, and so is dropped last
 * @param frames how many there are, the repeated ones not counted
 * @param body the frames, each behind one that tells when it was captured
 */
record Message(MessageId id, AtomicInteger generation, String key, int recap, boolean last, boolean signalling, int frames,
    byte[] body) {
  static final String CONTENT_TYPE = "application/vnd.voip-sniffer.frames; version=1";
  /** How long a body may become by another frame. */
  static final int MAX_BODY = 64 << 10;
  static final String RECAP = "recap";
  static final String LAST = "last";
}
