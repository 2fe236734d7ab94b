package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.signalling.Leg;

/**
 * Recognises copies of a voice. When a call manager relays media, each voice passes on two legs, as two RTP sources. It
 * is recorded once: from the leg that it came on first, as long as it comes there.
 */
final class Relay {
  private static final long SILENCE_MILLIS = 500;

  private Leg leg;
  private int ssrc;
  private long last;

  /** Whether a packet is recorded. A source that moves to another leg goes on. */
  boolean accepts(Leg from, int source, long time) {
    boolean accepted = leg == null || leg == from || ssrc == source || time - last >= SILENCE_MILLIS;
    if (accepted) {
      leg = from;
      ssrc = source;
      last = time;
    }
    return accepted;
  }
}
