package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * Follows H.323 calls by the descriptions of their messages.
 *
 * <p>A call reference is valid only on its signalling connection, so both together identify a leg. A call can have
 * several legs: on the other side of a gatekeeper that routes signalling, with the same call identifier, and on a
 * separate H.245 connection, between the same hosts and with the same call reference.
 */
final class H323Calls {
  private static final int H323_PORT = 1720;
  // Limits against hostile traffic.
  private static final int MAX_LEGS = 8;
  private static final int MAX_DESTINATIONS = 32;
  private static final int MAX_ENDED = 4096;
  private static final long LATE_MILLIS = 10_000;

  /** A connection, identified by its ends in ascending order, and a call reference on it. */
  private record LegId(String callReference, Endpoint low, Endpoint high) {
    static LegId of(String callReference, Frame frame) {
      Endpoint a = frame.source();
      Endpoint b = frame.destination();
      boolean ordered = a.ip() < b.ip() || a.ip() == b.ip() && a.port() < b.port();
      return ordered ? new LegId(callReference, a, b) : new LegId(callReference, b, a);
    }

    boolean hasHostsOf(LegId other) {
      return callReference.equals(other.callReference) && low.ip() == other.low.ip() && high.ip() == other.high.ip();
    }
  }

  /** A leg of a call and its calling end. */
  private record Leg(H323Call call, Endpoint calling) {}

  private final CallFollower follower;
  /** The legs and call identifiers of ended calls, with the time of the end. */
  private final BoundedMap<Object, Long> ended = new BoundedMap<>(MAX_ENDED);
  private final Map<LegId, Leg> legs = new HashMap<>();
  private final Map<String, H323Call> byCallId = new HashMap<>();

  H323Calls(CallFollower follower) {
    this.follower = follower;
  }

  /** Handles a description. Returns its call or null. */
  Call accept(Frame frame, long now) {
    H323Text text = H323Text.parse(frame.payload());
    if (text == null) {
      follower.countMalformed();
      return null;
    }
    LegId id = LegId.of(text.callReference(), frame);
    Leg leg = legs.get(id);
    if (leg != null && leg.call.isReplacedBy(text)) {
      follower.end(leg.call, "replaced by the next call on its connection", now);
      leg = null;
    }
    if (leg == null && !isLate(id, text, now)) {
      leg = join(id, text, frame, now);
    }
    if (leg == null) {
      return null;
    }
    follow(leg, id, text, frame, now);
    return leg.call;
  }

  /** Whether the description belongs to a call that has just ended. Another sniffer may deliver it late. */
  private boolean isLate(LegId id, H323Text text, long now) {
    if (text.type() == H323Text.SETUP && text.callId().isEmpty()) {
      return false;
    }
    Long end = ended.get(text.callId().isEmpty() ? id : text.callId());
    return end != null && now - end < LATE_MILLIS;
  }

  /** Adds a leg to a known or a new call. Returns null when there is no such call. */
  private Leg join(LegId id, H323Text text, Frame frame, long now) {
    if (text.type() == H323Text.RELEASE_COMPLETE) {
      return null;
    }
    Endpoint calling = callingEnd(text, frame);
    H323Call call = byCallId.get(text.callId());
    if (call == null && text.isSeparateH245()) {
      Leg signalling = signallingOf(id);
      if (signalling != null) {
        call = signalling.call;
        calling = frame.source().ip() == signalling.calling.ip() ? frame.source() : frame.destination();
      }
    }
    if (call == null) {
      // A call whose Setup was missed is followed only if its media is described.
      if (text.type() != H323Text.SETUP && text.media().isEmpty() || !follower.makeRoom(now)) {
        return null;
      }
      call = new H323Call(text, calling, calling == frame.source() ? frame.destination() : frame.source(), now);
      if (!text.callId().isEmpty()) {
        byCallId.put(text.callId(), call);
      }
    }
    Leg leg = new Leg(call, calling);
    if (call.legs.size() < MAX_LEGS) {
      call.legs.add(id);
      legs.put(id, leg);
    }
    return leg;
  }

  /** Returns the leg that a separate H.245 connection belongs to: of several the one of the newest call. */
  private Leg signallingOf(LegId h245) {
    Leg newest = null;
    for (Map.Entry<LegId, Leg> entry : legs.entrySet()) {
      Leg leg = entry.getValue();
      if (entry.getKey().hasHostsOf(h245) && (newest == null || leg.call.number() > newest.call.number())) {
        newest = leg;
      }
    }
    return newest;
  }

  private static Endpoint callingEnd(H323Text text, Frame frame) {
    boolean fromServer = frame.source().port() == H323_PORT && frame.destination().port() != H323_PORT;
    boolean fromCallee = text.isFromCallee() || text.type() != H323Text.SETUP && fromServer;
    return fromCallee ? frame.destination() : frame.source();
  }

  private void follow(Leg leg, LegId id, H323Text text, Frame frame, long now) {
    H323Call call = leg.call;
    call.active(now);
    if (text.type() == H323Text.CONNECT) {
      call.answered(now);
    }
    text.codecs().forEach(codec -> call.note("offers " + codec));
    boolean fromCaller = frame.source().equals(leg.calling);
    call.describe(text.media(), Direction.to(fromCaller));
    follower.update(call, now);
    follower.signalled(call, frame, text.label(), now);
    if (!text.digits().isEmpty()) {
      follower.dialled(call, Direction.to(!fromCaller), text.digits(), now);
    }
    if (text.type() == H323Text.RELEASE_COMPLETE && call.isOverWithout(id)) {
      String how = call.isAnswered() ? "hung up by " : "released by ";
      follower.end(call, how + (fromCaller ? "caller" : "callee"), now);
    }
  }

  private final class H323Call extends Call {
    /** The legs of the call. The call began on the first one. */
    private final List<LegId> legs = new ArrayList<>();
    private final Map<Endpoint, Use> destinations = new LinkedHashMap<>();

    /** Makes a call. The name of a party without an alias is its address. */
    H323Call(H323Text text, Endpoint calling, Endpoint called, long now) {
      this(text, calling, text.caller().isEmpty() ? calling.address() : text.caller(),
          text.callee().isEmpty() ? called.address() : text.callee(), now);
    }

    private H323Call(H323Text text, Endpoint calling, String caller, String callee, long now) {
      super(follower.nextNumber(), "H.323", text.callId().isEmpty() ? text.callReference() : text.callId(), caller,
          callee, Text.fileNamePart(caller) + "-" + Text.fileNamePart(callee), calling.ip(), now);
    }

    /** Whether the description begins another call on the same leg: the end of this call was missed. */
    boolean isReplacedBy(H323Text text) {
      return text.type() == H323Text.SETUP && !text.callId().isEmpty() && !text.callId().equals(id());
    }

    /**
     * Removes a released leg. Returns whether the call is over. The release of a later leg does not end the call,
     * because a gatekeeper may try several callees.
     */
    boolean isOverWithout(LegId released) {
      boolean first = legs.indexOf(released) == 0;
      legs.remove(released);
      H323Calls.this.legs.remove(released);
      return first || legs.isEmpty();
    }

    void describe(List<Endpoint> media, Direction direction) {
      for (Endpoint rtp : media) {
        if (destinations.size() < MAX_DESTINATIONS) {
          Use use = new Use(this, direction, Sdp.Media.at(rtp));
          destinations.putIfAbsent(rtp, use);
          destinations.putIfAbsent(rtp.next(), use);
        }
      }
    }

    @Override
    Map<Endpoint, Use> signalledDestinations() {
      return new LinkedHashMap<>(destinations);
    }

    @Override
    void ended(long now) {
      legs.forEach(H323Calls.this.legs::remove);
      byCallId.remove(id(), this);
      legs.forEach(leg -> H323Calls.this.ended.putLast(leg, now));
      H323Calls.this.ended.putLast(id(), now);
    }
  }
}
