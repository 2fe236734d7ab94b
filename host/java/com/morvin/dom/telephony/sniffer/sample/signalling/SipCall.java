package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import java.util.LinkedHashMap;
import java.util.Map;

/** A call by SIP. */
final class SipCall extends Call {
  private final SipCalls calls;
  private final SipLeg leg;

  SipCall(SipCalls calls, int number, SipLeg first, SipMessage invite, int origin) {
    super(number, "SIP", first,
        Text.fileNamePart(invite.caller().name()) + "-" + Text.fileNamePart(invite.to().name()), origin);
    this.calls = calls;
    leg = first;
  }

  @Override
  Map<Endpoint, Use> signalledDestinations() {
    Map<Endpoint, Use> destinations = new LinkedHashMap<>();
    leg.collect(this, destinations);
    return destinations;
  }

  @Override
  void ended(Moment now) {
    calls.ended(this, now);
  }
}
