package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.util.HashMap;
import java.util.Map;
import java.util.Optional;

/** Follows SIP calls by their messages. */
final class SipCalls {
  private static final int MAX_ENDED = 4096;

  /** A leg and its call. */
  private record Entry(SipLeg leg, SipCall call) {}

  private final CallFollower follower;
  private final Map<String, Entry> entries = new HashMap<>();
  private final BoundedMap<String, SipLeg.Attempt> ended = new BoundedMap<>(MAX_ENDED);

  SipCalls(CallFollower follower) {
    this.follower = follower;
  }

  /** Handles a message. Returns its call or null. */
  Call accept(Frame frame, Moment now) {
    Optional<SipMessage> parsed = SipMessage.parse(frame.payload());
    if (parsed.isEmpty()) {
      follower.countMalformed();
      return null;
    }
    SipMessage message = parsed.get();
    Entry entry = entries.get(message.callId());
    if (entry == null) {
      entry = begin(message, frame, now);
    }
    if (entry == null) {
      return null;
    }
    SipCall call = entry.call;
    boolean fits = entry.leg.follow(message, frame, now);
    if (fits) {
      call.lifetime().active(now);
    }
    if (entry.leg.isAnswered()) {
      call.lifetime().answered(now);
    }
    // A call that ends at once is updated as well, because the listener must be called for every call.
    follower.update(call, now);
    follower.signalled(call, frame, message.label() + (fits ? "" : " (does not belong to the call)"), now);
    if (fits && entry.leg.hasNewKey(message)) {
      follower.dialled(call, entry.leg.directionFrom(message.from()), message.digits(), now);
    }
    follower.endIfOver(call, now);
    return call;
  }

  private Entry begin(SipMessage message, Frame frame, Moment now) {
    SipLeg.Attempt before = ended.get(message.callId());
    if (!message.isRequest("INVITE") || before != null && before.isRepeatedBy(message, now)
        || !follower.makeRoom(now)) {
      return null;
    }
    SipLeg leg = new SipLeg(message, now);
    Entry entry = new Entry(leg, new SipCall(this, follower.nextNumber(), leg, message, frame.source().ip()));
    entries.put(message.callId(), entry);
    return entry;
  }

  /** Forgets an ended call. */
  void ended(SipCall call, Moment now) {
    for (Leg leg : call.legs()) {
      Entry entry = entries.get(leg.id());
      if (entry != null && entry.call == call) {
        entries.remove(leg.id());
        ended.putLast(leg.id(), entry.leg.attempt(now));
      }
    }
  }
}
