package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/** A call by SIP: one leg or, through a call manager or after a transfer, several. */
final class SipCall extends Call {
  private static final int MAX_LEGS = 16;

  private final SipCalls calls;

  SipCall(SipCalls calls, int number, SipLeg first, SipMessage invite) {
    super(number, "SIP", first,
        Text.fileNamePart(invite.caller().name()) + "-" + Text.fileNamePart(invite.to().name()), first.calling());
    this.calls = calls;
    first.setCall(this);
  }

  private SipCall(int number, SipCall before, Moment now) {
    super(number, before, now);
    calls = before.calls;
    sipLegs().forEach(leg -> leg.setCall(this));
    // A restart must not read the forged end again.
    signalling().removeIf(frame ->
        SipMessage.parse(frame.payload()).filter(message -> message.method().equals("BYE")).isPresent());
  }

  /** Returns the legs in the order of their start. */
  List<SipLeg> sipLegs() {
    return legs().stream().map(SipLeg.class::cast).toList();
  }

  /** Whether a host takes part in the signalling or receives media. */
  boolean hasHost(Address host) {
    return sipLegs().stream().anyMatch(leg -> leg.hasHost(host))
        || destinations().keySet().stream().anyMatch(destination -> destination.address().equals(host));
  }

  /** Whether a host has sent or received an INVITE of the call. Its messages can name any other host. */
  boolean isSignalledBy(Address host) {
    return sipLegs().stream().anyMatch(leg -> leg.calling().equals(host) || leg.hasCalled(host));
  }

  /** Whether the signalling of another call has passed a host that takes part in this one. */
  boolean sharesHostWith(SipCall other) {
    return destinations().keySet().stream().anyMatch(destination -> other.isSignalledBy(destination.address()))
        || sipLegs().stream().anyMatch(leg -> leg.hosts().anyMatch(other::isSignalledBy));
  }

  /** Whether the call can have this number of further legs. */
  boolean hasRoomFor(int more) {
    return legs().size() + more <= MAX_LEGS;
  }

  /** Returns the delay of the end that a message signals, in milliseconds. */
  long delayOfEnd(Moment now) {
    return delayOfEnd(now, calls.isLate(now));
  }

  @Override
  boolean retireLegs(Moment now, CallFollower.Limits limits) {
    sipLegs().forEach(leg -> leg.expire(now, limits.unansweredMillis()));
    return super.retireLegs(now, limits);
  }

  @Override
  Map<Endpoint, Use> signalledDestinations() {
    Map<Endpoint, Use> destinations = new LinkedHashMap<>();
    sipLegs().stream().filter(leg -> !leg.isRetired())
        .forEach(leg -> leg.destinations().forEach(destinations::putIfAbsent));
    destinations.replaceAll((endpoint, use) -> sipLegs().stream().filter(leg -> leg.hasOwner(endpoint)).findFirst()
        .map(leg -> use.to(leg.directionToOwner(endpoint))).orElse(use));
    return destinations;
  }

  @Override
  void ended(Moment now) {
    calls.ended(this, now);
  }

  @Override
  SipCall goOn(Moment now) {
    return calls.restore(this) ? new SipCall(calls.nextNumber(), this, now) : null;
  }
}
