package com.morvin.dom.telephony.sniffer.sample.service;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.signalling.Moment;
import com.morvin.dom.telephony.sniffer.sample.storage.FollowedCalls;
import com.morvin.dom.telephony.sniffer.sample.storage.RunningCalls;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import java.io.IOException;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * Keeps the calls of other shares over a restart. All methods belong to the thread of the {@link Service}.
 */
public final class OtherShares {
  private final FollowedCalls saved;
  private final CallFollower follower;
  private final SteadyClock clock;
  private final Console console;

  /** Saves the calls of a follower into a store. */
  public OtherShares(Store store, CallFollower follower, SteadyClock clock, Console console) {
    saved = new FollowedCalls(store);
    this.follower = follower;
    this.clock = clock;
    this.console = console;
  }

  /** Continues the saved calls, after those of the share, and ends the restoring of the follower. */
  public void restore(Moment now) {
    follower.restore(false);
    try {
      saved.load().forEach(call -> call.forEach(message ->
          follower.signalling(message.frame(), now.at(message.time()))));
    } catch (IOException e) {
      console.line("the calls of other shares from before the restart cannot be read: " + e);
    }
    follower.restore(null);
  }

  /** Adds a message of a call to what is saved next. */
  public void add(Call call, Frame frame, Moment time) {
    saved.add(call.number(), timed(frame, time));
  }

  /** Removes a call from what is saved next. */
  public void end(Call call) {
    saved.end(call.number());
  }

  /** Saves what has changed since the last time. */
  public void save() {
    saved.save(this::messages);
  }

  private Map<Integer, List<RunningCalls.TimedFrame>> messages() {
    Map<Integer, List<RunningCalls.TimedFrame>> messages = new LinkedHashMap<>();
    follower.calls().stream().filter(call -> !call.isOwned()).forEach(call ->
        messages.put(call.number(), follower.messages(call).stream()
            .map(message -> timed(message.frame(), message.time())).toList()));
    return messages;
  }

  private RunningCalls.TimedFrame timed(Frame frame, Moment time) {
    return new RunningCalls.TimedFrame(time.stamp() + clock.skew(), frame);
  }
}
