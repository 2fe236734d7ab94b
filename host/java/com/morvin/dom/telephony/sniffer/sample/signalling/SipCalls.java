package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.util.Comparator;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Optional;
import java.util.stream.Stream;

/** Follows SIP calls by their messages. */
final class SipCalls {
  private static final int MAX_ENDED = 4096;
  /** By how much the clocks of two runs differ. */
  private static final long CLOCK_MILLIS = 100;
  /** How long after a restart a sniffer may still send again what it had sent before. */
  private static final long RESENT_MILLIS = 60_000;

  private final CallFollower follower;
  private final Map<String, SipLeg> legs = new HashMap<>();
  private final SipLinks links;
  private final BoundedMap<String, SipLeg.Attempt> ended = new BoundedMap<>(MAX_ENDED);
  /** The calls that ended before a restart, by Call-ID: the steady time of the restart and the stamp of the end. */
  private final BoundedMap<String, Moment> endedBefore = new BoundedMap<>(MAX_ENDED);

  SipCalls(CallFollower follower) {
    this.follower = follower;
    links = new SipLinks(legs::get, follower::uses);
  }

  /** Handles a message. Returns its call or null. */
  Call accept(Frame frame, Moment now) {
    Optional<SipMessage> parsed = SipMessage.parse(frame.payload());
    if (parsed.isEmpty()) {
      follower.countMalformed();
      return null;
    }
    SipMessage message = parsed.get();
    SipLeg leg = legs.get(message.callId());
    if (leg == null || leg.isRetired() && leg.attempt(now).isFollowedBy(message, now)) {
      leg = begin(message, leg, frame, now);
    }
    if (leg == null) {
      return null;
    }
    boolean fits = leg.follow(message, frame, now);
    if (fits) {
      leg.call().lifetime().active(now);
    }
    if (leg.isAnswered()) {
      leg.call().lifetime().answered(now);
    }
    // A call that ends at once is updated as well, because the listener must be called for every call.
    follower.update(leg.call(), now);
    if (fits) {
      link(leg, message, frame, now);
    }
    follower.signalled(leg.call(), frame, message.label() + (fits ? "" : " (does not belong to the call)"), now);
    if (fits && leg.hasNewKey(message)) {
      follower.dialled(leg.call(), leg.directionFrom(message.from()), message.digits(), now);
    }
    SipCall call = leg.call();
    follower.endIfOver(call, now);
    return call;
  }

  /**
   * Makes a leg of a running or a new call.
   *
   * @param retired an earlier leg of a running call with this Call-ID; may be null
   */
  private SipLeg begin(SipMessage message, SipLeg retired, Frame frame, Moment now) {
    if (isSentAgain(message, now)) {
      return null;
    }
    SipLeg.Attempt before = ended.get(message.callId());
    boolean late = SipLeg.canBegin(message);
    // The end of a call that is answered all the same was forged.
    boolean resumes = before != null && late && !before.isAnswered() && SipLeg.isAnswer(message);
    boolean begins = before == null ? message.isRequest("INVITE") || late : before.isFollowedBy(message, now);
    if (!begins && !resumes) {
      return null;
    }
    SipLeg leg = new SipLeg(message, frame, now);
    if (resumes) {
      leg.resume(before);
    }
    follower.assign(leg, now);
    List<SipLinks.Link> found = retired != null ? List.of(new SipLinks.Link(retired.call(), retired.isTurned()))
        : late ? List.of() : links.find(message, frame, now);
    if (!found.isEmpty() && found.get(0).call().hasRoomFor(1)) {
      join(leg, found, now);
    } else if (follower.makeRoom(message.callId(), now)) {
      new SipCall(this, follower.nextNumber(), leg, message);
    } else {
      return null;
    }
    if (late) {
      leg.doubt();
      leg.call().note(resumes ? "answered after the signalling had ended it"
          : "the beginning of the signalling was not seen");
    }
    legs.put(message.callId(), leg);
    links.add(leg, message);
    return leg;
  }

  /**
   * Whether a message is one of a call that ended before a restart. Its stamp does not show that when the clock was set
   * meanwhile, or when the clock of the sniffer differs. A new message is hardly delayed.
   */
  private boolean isSentAgain(SipMessage message, Moment now) {
    Moment over = endedBefore.get(message.callId());
    return over != null && (now.stamp() <= over.stamp() + CLOCK_MILLIS
        || follower.isDelayed() && now.since(over) < RESENT_MILLIS);
  }

  /** Merges the linked calls into the oldest one and adds a leg to it. */
  private void join(SipLeg leg, List<SipLinks.Link> found, Moment now) {
    if (found.stream().anyMatch(link -> link.call().isEnding(now))) {
      leg.doubt();
    }
    SipLinks.Link oldest = found.stream().min(Comparator.comparingInt(link -> link.call().number())).orElseThrow();
    for (SipLinks.Link link : found) {
      merge(oldest.call(), link.call(), oldest.turned() != link.turned(), now);
    }
    if (oldest.turned()) {
      leg.turn();
    }
    leg.setCall(oldest.call());
    oldest.call().add(leg);
  }

  private void merge(SipCall call, SipCall other, boolean turned, Moment now) {
    if (call == other || !call.hasRoomFor(other.legs().size())) {
      return;
    }
    SipCall older = call.number() < other.number() ? call : other;
    SipCall younger = older == call ? other : call;
    if (call.isEnding(now) || other.isEnding(now)) {
      Stream.of(call, other).flatMap(either -> either.legs().stream()).forEach(Leg::doubt);
    }
    younger.sipLegs().forEach(leg -> leg.setCall(older));
    follower.merge(older, younger, turned, now);
  }

  /** Merges the call of a leg with others that a message has linked to it. */
  private void link(SipLeg leg, SipMessage message, Frame frame, Moment now) {
    if (message.isRequest("REFER")) {
      links.refer(leg, message, frame, now);
    } else if (message.method().equals("REFER") && message.status() >= 200) {
      links.referAnswered(leg, message).ifPresent(other -> merge(leg.call(), other.call(), other.turned(), now));
    } else if (message.sdp().isPresent()) {
      links.sameStream(leg).ifPresent(other -> merge(leg.call(), other.call(), other.turned(), now));
    }
  }

  /** Whether a message was captured long ago. */
  boolean isLate(Moment now) {
    return follower.isLate(now);
  }

  /** Records that a call ended before a restart, which is at the steady time of the moment. */
  void endedBefore(String callId, Moment end) {
    endedBefore.putLast(callId, end);
  }

  int nextNumber() {
    return follower.nextNumber();
  }

  /** Follows the legs of an ended call again. Returns false when a Call-ID of theirs is that of another call now. */
  boolean restore(SipCall call) {
    if (call.sipLegs().stream().anyMatch(leg -> legs.containsKey(leg.id()))) {
      return false;
    }
    for (SipLeg leg : call.sipLegs()) {
      legs.put(leg.id(), leg);
      ended.remove(leg.id());
    }
    return true;
  }

  /** Forgets an ended call. */
  void ended(SipCall call, Moment now) {
    for (SipLeg leg : call.sipLegs()) {
      legs.remove(leg.id(), leg);
      links.remove(leg);
      ended.putLast(leg.id(), leg.attempt(now));
    }
  }
}
