package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.media.Track;
import com.morvin.dom.telephony.sniffer.sample.service.UsesAhead;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;

/**
 * Reads the state that the next packets need, before they are handled. The state of thousands of voices does not fit
 * into the caches of a processor. A packet would wait for memory a dozen times, one time after the other, because each
 * object leads to the next. Here the same step is done for many packets, so that they wait at the same time.
 */
final class LookAhead {
  private final UsesAhead uses;
  private final Track[] tracks;
  /** Uses what was read, so that the compiler does not leave it out. */
  private long sum;

  LookAhead(CallFollower follower, int most) {
    uses = new UsesAhead(follower, most);
    tracks = new Track[most];
  }

  /** Reads the state for the frames from that of a cursor on. */
  void read(FrameCursor from) {
    int count = uses.find(from);
    int voices = 0;
    for (int i = 0; i < count; i++) {
      sum += uses.get(i).touch();
      if (uses.get(i).attachment() instanceof Voice voice) {
        tracks[voices++] = voice.track;
      }
    }
    for (int step = 0; step < Track.STEPS; step++) {
      for (int i = 0; i < voices; i++) {
        sum += tracks[i].touch(step);
      }
    }
  }
}
