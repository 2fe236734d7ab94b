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
 * <p>A call reference is valid only on its signalling connection, so both together are the key. A call can have
 * several connections: on the other side of a gatekeeper that routes signalling, with the same call identifier, and
 * for separate H.245, between the same hosts and with the same call reference.
 */
final class H323Calls {
  private static final int H323_PORT = 1720;
  // Limits against hostile traffic.
  private static final int MAX_CONNECTIONS = 8;
  private static final int MAX_DESTINATIONS = 32;
  private static final int MAX_ENDED = 4096;
  private static final long LATE_MILLIS = 10_000;

  /**
   * A connection, identified by its ends in ascending order, and a call reference on it.
   *
   * @param rival the call identifier of a call that began while another call had media; empty for other calls
   */
  private record ConnectionId(String callReference, Endpoint low, Endpoint high, String rival) {
    static ConnectionId of(String callReference, Frame frame) {
      Endpoint a = frame.source();
      Endpoint b = frame.destination();
      int order = a.address().compareTo(b.address());
      boolean ordered = order < 0 || order == 0 && a.port() < b.port();
      return ordered ? new ConnectionId(callReference, a, b, "") : new ConnectionId(callReference, b, a, "");
    }

    ConnectionId withRival(String callId) {
      return new ConnectionId(callReference, low, high, callId);
    }

    boolean hasHostsOf(ConnectionId other) {
      return callReference.equals(other.callReference) && low.address().equals(other.low.address())
          && high.address().equals(other.high.address());
    }
  }

  /** The call of a connection and the calling end. */
  private record Connection(H323Call call, Endpoint calling) {}

  private final CallFollower follower;
  /** The connections and call identifiers of ended calls, with the time of the end. */
  private final BoundedMap<Object, Moment> ended = new BoundedMap<>(MAX_ENDED);
  private final Map<ConnectionId, Connection> connections = new HashMap<>();
  private final Map<String, H323Call> byCallId = new HashMap<>();

  H323Calls(CallFollower follower) {
    this.follower = follower;
  }

  /** Handles a description. Returns its call or null. */
  Call accept(Frame frame, Moment now) {
    H323Text text = H323Text.parse(frame.payload());
    if (text == null) {
      follower.countMalformed();
      return null;
    }
    ConnectionId id = idOf(text, frame, now);
    Connection connection = connections.get(id);
    if (connection == null && !isLate(id, text, now)) {
      connection = join(id, text, frame, now);
    }
    if (connection == null) {
      return null;
    }
    follow(connection, id, text, frame, now);
    return connection.call;
  }

  /**
   * Returns the connection of a description. A Setup with another call identifier ends the call before it, unless that
   * call has media: the Setup may be forged, so both calls are followed.
   */
  private ConnectionId idOf(H323Text text, Frame frame, Moment now) {
    ConnectionId id = ConnectionId.of(text.callReference(), frame);
    ConnectionId rival = id.withRival(text.callId());
    if (connections.containsKey(rival)) {
      return rival;
    }
    Connection connection = connections.get(id);
    if (connection != null && connection.call.isReplacedBy(text)) {
      connection.call.leg.end("replaced by the next call on its connection", now, 0);
      follower.endIfOver(connection.call, now);
    }
    return connection != null && connections.get(id) == connection && connection.call.isReplacedBy(text) ? rival : id;
  }

  /** Whether the description belongs to a call that has just ended. Another sniffer may deliver it late. */
  private boolean isLate(ConnectionId id, H323Text text, Moment now) {
    if (text.type() == H323Text.SETUP && text.callId().isEmpty()) {
      return false;
    }
    Moment end = ended.get(text.callId().isEmpty() ? id : text.callId());
    return end != null && now.since(end) < LATE_MILLIS;
  }

  /** Adds a connection to a known or a new call. Returns null when there is no such call. */
  private Connection join(ConnectionId id, H323Text text, Frame frame, Moment now) {
    if (text.type() == H323Text.RELEASE_COMPLETE) {
      return null;
    }
    Endpoint calling = callingEnd(text, frame);
    H323Call call = byCallId.get(text.callId());
    if (call == null && text.isSeparateH245()) {
      Connection signalling = signallingOf(id);
      if (signalling != null) {
        call = signalling.call;
        calling = frame.source().address().equals(signalling.calling.address()) ? frame.source() : frame.destination();
      }
    }
    if (call == null) {
      // A call whose Setup was missed is followed only if its media is described.
      if (text.type() != H323Text.SETUP && text.media().isEmpty() || !follower.makeRoom(id.toString(), now)) {
        return null;
      }
      call = new H323Call(text, calling, calling == frame.source() ? frame.destination() : frame.source(), now);
      if (text.type() == H323Text.SETUP) {
        call.leg.markSeenFromStart();
      }
      follower.assign(call.leg, now);
      if (!text.callId().isEmpty()) {
        byCallId.put(text.callId(), call);
      }
    }
    Connection connection = new Connection(call, calling);
    if (call.connections.size() < MAX_CONNECTIONS) {
      call.connections.add(id);
      connections.put(id, connection);
    }
    return connection;
  }

  /** Returns the connection that a separate H.245 connection belongs to: of several the one of the newest call. */
  private Connection signallingOf(ConnectionId h245) {
    Connection newest = null;
    for (Map.Entry<ConnectionId, Connection> entry : connections.entrySet()) {
      Connection connection = entry.getValue();
      if (entry.getKey().hasHostsOf(h245) && (newest == null || connection.call.number() > newest.call.number())) {
        newest = connection;
      }
    }
    return newest;
  }

  private static Endpoint callingEnd(H323Text text, Frame frame) {
    boolean fromServer = frame.source().port() == H323_PORT && frame.destination().port() != H323_PORT;
    boolean fromCallee = text.isFromCallee() || text.type() != H323Text.SETUP && fromServer;
    return fromCallee ? frame.destination() : frame.source();
  }

  private void follow(Connection connection, ConnectionId id, H323Text text, Frame frame, Moment now) {
    H323Call call = connection.call;
    call.lifetime().active(now);
    if (text.type() == H323Text.CONNECT) {
      call.lifetime().answered(now);
    }
    text.codecs().forEach(codec -> call.note("offers " + codec));
    boolean fromCaller = frame.source().equals(connection.calling);
    call.describe(text.media(), Direction.to(fromCaller));
    follower.update(call, now);
    follower.signalled(call, frame, text.label(), now);
    if (!text.digits().isEmpty()) {
      follower.dialled(call, Direction.to(!fromCaller), text.digits(), now);
    }
    if (text.type() == H323Text.RELEASE_COMPLETE && call.isOverWithout(id)) {
      String how = call.lifetime().answer() != null ? "hung up by " : "released by ";
      call.leg.end(how + (fromCaller ? "caller" : "callee"), now, call.delayOfEnd(now, follower.isLate(now)));
      follower.endIfOver(call, now);
    }
  }

  /** Records that a call ended shortly before a restart. */
  void endedBefore(String callId, Moment now) {
    ended.putLast(callId, now);
  }

  private final class H323Call extends Call {
    /** The connections of the call. The call began on the first one. */
    private final List<ConnectionId> connections = new ArrayList<>();
    private final Map<Endpoint, Use> destinations = new LinkedHashMap<>();
    private final Leg leg;

    /** Makes a call. The name of a party without an alias is its address. */
    H323Call(H323Text text, Endpoint calling, Endpoint called, Moment now) {
      this(new Leg(text.callId().isEmpty() ? text.callReference() : text.callId(),
          text.caller().isEmpty() ? calling.address().toString() : text.caller(),
          text.callee().isEmpty() ? called.address().toString() : text.callee(), now), calling);
    }

    private H323Call(Leg leg, Endpoint calling) {
      super(follower.nextNumber(), "H.323", leg,
          Text.fileNamePart(leg.caller()) + "-" + Text.fileNamePart(leg.callee()), calling.address());
      this.leg = leg;
    }

    private H323Call(H323Call before, Moment now) {
      super(follower.nextNumber(), before, now);
      leg = before.leg;
      before.destinations.forEach((endpoint, use) -> destinations.put(endpoint, use.by(this)));
    }

    /** Whether the description begins another call on the same connection: the end of this call was missed. */
    boolean isReplacedBy(H323Text text) {
      return text.type() == H323Text.SETUP && !text.callId().isEmpty() && !text.callId().equals(id());
    }

    /**
     * Removes a released connection. Returns whether the call is over. The release of a later connection does not end
     * the call, because a gatekeeper may try several callees.
     */
    boolean isOverWithout(ConnectionId released) {
      boolean first = connections.indexOf(released) == 0;
      connections.remove(released);
      H323Calls.this.connections.remove(released);
      return first || connections.isEmpty();
    }

    void describe(List<Endpoint> media, Direction direction) {
      changed();
      for (Endpoint rtp : media) {
        Use use = new Use(this, leg, direction, Sdp.Media.at(rtp));
        destinations.putIfAbsent(rtp, use);
        destinations.putIfAbsent(rtp.next(), use);
      }
      while (destinations.size() > MAX_DESTINATIONS) {
        destinations.remove(destinations.keySet().iterator().next());  // the oldest; its media may go on
      }
    }

    @Override
    Map<Endpoint, Use> signalledDestinations() {
      return new LinkedHashMap<>(destinations);
    }

    /** The connections have ended with the messages, so the call ends a while after its media. */
    @Override
    H323Call goOn(Moment now) {
      return new H323Call(this, now);
    }

    @Override
    void ended(Moment now) {
      connections.forEach(H323Calls.this.connections::remove);
      byCallId.remove(id(), this);
      connections.forEach(connection -> H323Calls.this.ended.putLast(connection, now));
      H323Calls.this.ended.putLast(id(), now);
    }
  }
}
