package com.morvin.dom.telephony.sniffer.sample.service;

import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;

/** The uses of destinations that the next frames have; see {@link Service#lookAhead}. */
public final class UsesAhead {
  private final CallFollower follower;
  private final FrameCursor frame = new FrameCursor(new FrameBlock(new byte[0], 0, 0, 0, 0));
  private final Call.Use[] uses;

  /** Makes room for a number of uses. */
  public UsesAhead(CallFollower follower, int most) {
    this.follower = follower;
    uses = new Call.Use[most];
  }

  /** Finds the uses for the frames from that of a cursor on. Returns their number. */
  public int find(FrameCursor from) {
    int count = 0;
    frame.begin(from);
    do {
      Call.Use use = frame.protocol() == Frame.RTP ? follower.peek(frame.destination()) : null;
      if (use != null) {
        uses[count++] = use;
      }
    } while (count < uses.length && frame.next());
    return count;
  }

  /** Returns one of the uses that {@link #find} has found. */
  public Call.Use get(int index) {
    return uses[index];
  }
}
