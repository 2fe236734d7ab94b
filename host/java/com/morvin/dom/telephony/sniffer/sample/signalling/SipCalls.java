package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.util.HashMap;
import java.util.HashSet;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.Optional;
import java.util.Set;

/** Follows SIP calls by their messages, captured on either side of a proxy. */
final class SipCalls {
  // Limits against hostile traffic.
  private static final int MAX_LEGS = 64;
  private static final int MAX_BRANCHES = 64;
  private static final int MAX_DESTINATIONS = 64;
  private static final int MAX_ENDED = 4096;

  /** The requests whose success can change the destinations of media. */
  private static final Set<String> FOLLOWED = Set.of("INVITE", "UPDATE", "PRACK", "BYE");

  /** The time in which a rejected call may be tried again, with credentials or at another address. */
  private static final long RETRY_MILLIS = 5_000;
  /** The time in which a BYE or a CANCEL must be answered (RFC 3261: 32 s). */
  private static final long BYE_TIMEOUT_MILLIS = 32_000;

  private final CallFollower follower;
  private final Map<String, SipCall> calls = new HashMap<>();

  /**
   * An ended call: the CSeq and the branches of its INVITEs, and the time of its end. A sender may repeat an INVITE,
   * and another sniffer may deliver it late. An INVITE on another branch is a new attempt, although a forking proxy
   * keeps Call-ID and CSeq.
   */
  private record Ended(long invite, Set<String> branches, long time) {
    boolean isRepeatedBy(SipMessage message, long now) {
      boolean known = message.branch().isEmpty() ? message.cseq() <= invite : branches.contains(message.branch());
      return now - time < BYE_TIMEOUT_MILLIS && (known || message.cseq() < invite);
    }
  }

  private final BoundedMap<String, Ended> ended = new BoundedMap<>(MAX_ENDED);

  SipCalls(CallFollower follower) {
    this.follower = follower;
  }

  /** Handles a message. Returns its call or null. */
  Call accept(Frame frame, long now) {
    Optional<SipMessage> parsed = SipMessage.parse(frame.payload());
    if (parsed.isEmpty()) {
      follower.countMalformed();
      return null;
    }
    SipMessage message = parsed.get();
    SipCall call = calls.get(message.callId());
    if (call == null) {
      Ended before = ended.get(message.callId());
      if (!message.isRequest("INVITE") || before != null && before.isRepeatedBy(message, now)
          || !follower.makeRoom(now)) {
        return null;
      }
      call = new SipCall(message, frame.source().ip(), now);
      calls.put(message.callId(), call);
    }
    call.active(now);
    String end = call.follow(message, frame, now);
    // A call that ends at once is updated as well, because the listener must be called for every call.
    follower.update(call, now);
    follower.signalled(call, frame, message.label(), now);
    if (end != null) {
      follower.end(call, end, now);
    }
    return call;
  }

  /**
   * One party on one hop: its tag and its address on that hop. A proxy may relay the media, so the same party can have
   * other media addresses on the next hop.
   */
  private record LegId(String tag, int ip) {}

  /** The media of one party on one hop, by offer and answer (RFC 3264). */
  private static final class Leg {
    /** The CSeq of the last request with a description. The same CSeq again is a retransmission. */
    private long lastOffer = -1;
    /** The CSeq of the last successful request of the other party, by method. */
    private final Map<String, Long> answeredRequests = new HashMap<>();
    private boolean answered;
    private Optional<Sdp> agreed = Optional.empty();
    private Optional<Sdp> proposed = Optional.empty();

    void agree(Sdp sdp) {
      agreed = Optional.of(sdp);
      proposed = Optional.empty();
    }

    void agreeToProposal() {
      proposed.ifPresent(this::agree);
    }
  }

  private final class SipCall extends Call {
    private final String callerTag;
    private final Map<LegId, Leg> legs = new LinkedHashMap<>();
    /** The branches of the INVITEs of this attempt; {@code ringing} holds those without a final response. */
    private final Set<String> branches = new HashSet<>();
    private final Set<String> ringing = new HashSet<>();
    private long lastInvite;
    private boolean cancelled;

    SipCall(SipMessage invite, int origin, long now) {
      super(follower.nextNumber(), "SIP", invite.callId(), invite.from().uri(), invite.to().uri(),
          Text.fileNamePart(invite.from().name()) + "-" + Text.fileNamePart(invite.to().name()), origin, now);
      callerTag = invite.from().tag();
    }

    /** Handles a message. Returns the reason when it ends the call, or null. */
    String follow(SipMessage message, Frame frame, long now) {
      if (message.isRequest()) {
        followRequest(message, frame, now);
        return null;
      }
      if (!FOLLOWED.contains(message.method())) {
        return null;
      }
      Leg answerer = leg(message.to(), frame.source(), message.isSuccess() || message.sdp().isPresent());
      if (message.cseq() <= answerer.answeredRequests.getOrDefault(message.method(), -1L)) {
        return null;  // a retransmission
      }
      if (message.isSuccess()) {
        return followSuccess(message, frame, answerer, now);
      }
      if (message.isFailure()) {
        return followFailure(message, frame, now);
      }
      if (message.method().equals("INVITE")) {
        message.sdp().ifPresent(sdp -> answerer.proposed = Optional.of(sdp));
      }
      return null;
    }

    private void followRequest(SipMessage request, Frame frame, long now) {
      Leg sender = leg(request.from(), frame.source(), request.sdp().isPresent());
      switch (request.method()) {
        case "INVITE" -> {
          lastInvite = Math.max(lastInvite, request.cseq());
          if (!isAnswered() && branches.size() < MAX_BRANCHES && branches.add(request.branch())) {
            cancelEnd();
            ringing.add(request.branch());
          }
          offer(sender, request);
        }
        case "UPDATE", "PRACK" -> offer(sender, request);
        case "ACK" -> request.sdp().filter(sdp -> request.cseq() >= sender.lastOffer).ifPresent(sender::agree);
        case "CANCEL" -> {
          if (!isAnswered()) {
            cancelled = true;
            endAt(now + BYE_TIMEOUT_MILLIS, "cancelled");
          }
        }
        case "BYE" -> endAt(now + BYE_TIMEOUT_MILLIS, "hung up by " + nameOf(request.from()));
        default -> { }
      }
    }

    /** Adds a proposal. The agreed description stays valid until the offer is answered. */
    private void offer(Leg sender, SipMessage request) {
      if (request.cseq() > sender.lastOffer) {
        sender.lastOffer = request.cseq();
        if (request.sdp().isPresent()) {
          sender.proposed = request.sdp();
        }
      }
    }

    private String followSuccess(SipMessage response, Frame frame, Leg answerer, long now) {
      answerer.answeredRequests.put(response.method(), response.cseq());
      switch (response.method()) {
        case "INVITE" -> {
          if (!isAnswered()) {
            cancelEnd();
            answered(now);
            forgetUnanswered(response.to().tag());
          }
          answerer.answered = true;
          ringing.clear();
          applyAnswer(response, frame, answerer);
        }
        case "UPDATE", "PRACK" -> applyAnswer(response, frame, answerer);
        case "BYE" -> {
          return endOf(response);
        }
        default -> { }
      }
      return null;
    }

    /**
     * Applies an answer. Before the call is answered it is only a proposal, because other branches may answer as well.
     */
    private void applyAnswer(SipMessage response, Frame frame, Leg answerer) {
      if (!isAnswered()) {
        response.sdp().ifPresent(sdp -> answerer.proposed = Optional.of(sdp));
        return;
      }
      response.sdp().ifPresentOrElse(answerer::agree, answerer::agreeToProposal);
      leg(response.from(), frame.destination(), false).agreeToProposal();
    }

    /** Removes the other branches of a forked call after one of them is answered. */
    private void forgetUnanswered(String tag) {
      legs.keySet().removeIf(leg -> !leg.tag.equals(callerTag) && !leg.tag.equals(tag));
    }

    private String followFailure(SipMessage response, Frame frame, long now) {
      switch (response.method()) {
        case "INVITE" -> {
          if (isAnswered()) {
            leg(response.from(), frame.destination(), false).proposed = Optional.empty();
          } else if (response.cseq() >= lastInvite && ringing.remove(response.branch()) && ringing.isEmpty()) {
            String how = cancelled ? "cancelled" : "failed: " + response.status() + " " + response.reason();
            if (cancelled || !isWorthRetrying(response.status())) {
              return how;
            }
            endAt(now + RETRY_MILLIS, how);
          }
        }
        case "UPDATE", "PRACK" -> leg(response.from(), frame.destination(), false).proposed = Optional.empty();
        case "BYE" -> {
          if (response.status() == 408 || response.status() == 481) {
            return endOf(response);
          }
          cancelEnd();  // usually the party must send credentials first
        }
        default -> { }
      }
      return null;
    }

    /** Whether a caller usually tries again: it is redirected, must send credentials, or used a refused extension. */
    private static boolean isWorthRetrying(int status) {
      return status < 400 || status == 401 || status == 407 || status == 420 || status == 422 || status == 488;
    }

    /**
     * Returns the reason when the last dialog of the call has ended. A forked call can have several answered dialogs.
     */
    private String endOf(SipMessage byeResponse) {
      String callee = byeResponse.from().tag().equals(callerTag) ? byeResponse.to().tag() : byeResponse.from().tag();
      legs.keySet().removeIf(leg -> leg.tag.equals(callee));
      if (legs.values().stream().anyMatch(leg -> leg.answered)) {
        cancelEnd();
        return null;
      }
      return "hung up by " + nameOf(byeResponse.from());
    }

    private String nameOf(SipMessage.Party party) {
      return party.tag().equals(callerTag) ? "caller" : "callee";
    }

    /**
     * Returns the leg of a party. A leg without a description is not kept, because a group of ringing telephones makes
     * many of them. When there are too many legs, an unanswered one is removed.
     *
     * @param matters whether the leg is kept
     */
    private Leg leg(SipMessage.Party party, Endpoint address, boolean matters) {
      LegId id = new LegId(party.tag(), address.ip());
      Leg leg = legs.get(id);
      if (leg != null) {
        return leg;
      }
      leg = new Leg();
      if (legs.size() == MAX_LEGS && matters) {
        legs.entrySet().stream().filter(old -> !old.getValue().answered && !old.getKey().tag.equals(callerTag))
            .map(Map.Entry::getKey).findFirst().ifPresent(legs::remove);
      }
      if (matters && legs.size() < MAX_LEGS) {
        legs.put(id, leg);
      }
      return leg;
    }

    @Override
    Map<Endpoint, Use> signalledDestinations() {
      Map<Endpoint, Use> destinations = new LinkedHashMap<>();
      legs.forEach((id, leg) -> {
        Direction direction = Direction.to(id.tag.equals(callerTag));
        leg.agreed.ifPresent(sdp -> collect(sdp, direction, destinations));
        leg.proposed.ifPresent(sdp -> collect(sdp, direction, destinations));
      });
      return destinations;
    }

    private void collect(Sdp sdp, Direction direction, Map<Endpoint, Use> destinations) {
      for (Sdp.Media media : sdp.media()) {
        if (destinations.size() >= MAX_DESTINATIONS) {
          return;
        }
        Use use = new Use(this, direction, media);
        media.rtp().ifPresent(endpoint -> destinations.put(endpoint, use));
        media.rtcp().ifPresent(endpoint -> destinations.putIfAbsent(endpoint, use));
      }
    }

    @Override
    void ended(long now) {
      calls.remove(id(), this);
      ended.putLast(id(), new Ended(lastInvite, branches, now));
    }
  }
}
