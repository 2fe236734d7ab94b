package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.service.UsesAhead;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;

/**
 * Reads the state of the calls that the next frames need, before they are handled. The state of thousands of calls does
 * not fit into the caches of a processor, and each object leads to the next. Here the same step is done for many
 * frames, so that they wait for memory at the same time.
 */
final class CallsAhead {
  private final UsesAhead uses;
  /** Uses what was read, so that the compiler does not leave it out. */
  private long sum;

  CallsAhead(CallFollower follower, int most) {
    uses = new UsesAhead(follower, most);
  }

  /** Reads the state for the frames from that of a cursor on. */
  void read(FrameCursor from) {
    int count = uses.find(from);
    for (int i = 0; i < count; i++) {
      Call.Use use = uses.get(i);
      sum += use.touch() + (use.call().isOwned() ? 1 : 0)
          + (use.attachment() instanceof CallStream stream ? stream.number : 0);
    }
  }
}
