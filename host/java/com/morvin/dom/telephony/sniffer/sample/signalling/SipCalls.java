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
  private static final int MAX_PARTIES = 64;
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
  private record Ended(long invite, Set<String> branches, Moment time) {
    boolean isRepeatedBy(SipMessage message, Moment now) {
      boolean known = message.branch().isEmpty() ? message.cseq() <= invite : branches.contains(message.branch());
      return now.since(time) < BYE_TIMEOUT_MILLIS && (known || message.cseq() < invite);
    }
  }

  private final BoundedMap<String, Ended> ended = new BoundedMap<>(MAX_ENDED);

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
    call.lifetime().active(now);
    call.follow(message, frame, now);
    // A call that ends at once is updated as well, because the listener must be called for every call.
    follower.update(call, now);
    follower.signalled(call, frame, message.label(), now);
    follower.endIfOver(call, now);
    return call;
  }

  /**
   * One party on one hop: its tag and its address on that hop. A proxy may relay the media, so the same party can have
   * other media addresses on the next hop.
   */
  private record PartyId(String tag, int ip) {}

  /** The media of one party on one hop, by offer and answer (RFC 3264). */
  private static final class PartyMedia {
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
    private final Leg leg;
    private final String callerTag;
    private final Map<PartyId, PartyMedia> parties = new LinkedHashMap<>();
    /** The branches of the INVITEs of this attempt; {@code ringing} holds those without a final response. */
    private final Set<String> branches = new HashSet<>();
    private final Set<String> ringing = new HashSet<>();
    private long lastInvite;
    private boolean cancelled;

    SipCall(SipMessage invite, int origin, Moment now) {
      super(follower.nextNumber(), "SIP", new Leg(invite.callId(), invite.from().uri(), invite.to().uri(), now),
          Text.fileNamePart(invite.from().name()) + "-" + Text.fileNamePart(invite.to().name()), origin);
      leg = legs().get(0);
      callerTag = invite.from().tag();
    }

    void follow(SipMessage message, Frame frame, Moment now) {
      if (message.isRequest()) {
        followRequest(message, frame, now);
        return;
      }
      if (!FOLLOWED.contains(message.method())) {
        return;
      }
      PartyMedia answerer = party(message.to(), frame.source(), message.isSuccess() || message.sdp().isPresent());
      if (message.cseq() <= answerer.answeredRequests.getOrDefault(message.method(), -1L)) {
        return;  // a retransmission
      }
      if (message.isSuccess()) {
        followSuccess(message, frame, answerer, now);
      } else if (message.isFailure()) {
        followFailure(message, frame, now);
      } else if (message.method().equals("INVITE")) {
        message.sdp().ifPresent(sdp -> answerer.proposed = Optional.of(sdp));
      }
    }

    private void followRequest(SipMessage request, Frame frame, Moment now) {
      PartyMedia sender = party(request.from(), frame.source(), request.sdp().isPresent());
      switch (request.method()) {
        case "INVITE" -> {
          lastInvite = Math.max(lastInvite, request.cseq());
          if (lifetime().answer() == null && branches.size() < MAX_BRANCHES && branches.add(request.branch())) {
            leg.cancelEnd();
            ringing.add(request.branch());
          }
          offer(sender, request);
        }
        case "UPDATE", "PRACK" -> offer(sender, request);
        case "ACK" -> request.sdp().filter(sdp -> request.cseq() >= sender.lastOffer).ifPresent(sender::agree);
        case "CANCEL" -> {
          if (lifetime().answer() == null) {
            cancelled = true;
            leg.end("cancelled", now, BYE_TIMEOUT_MILLIS);
          }
        }
        case "BYE" -> leg.end("hung up by " + nameOf(request.from()), now, BYE_TIMEOUT_MILLIS);
        default -> { }
      }
    }

    /** Adds a proposal. The agreed description stays valid until the offer is answered. */
    private void offer(PartyMedia sender, SipMessage request) {
      if (request.cseq() > sender.lastOffer) {
        sender.lastOffer = request.cseq();
        if (request.sdp().isPresent()) {
          sender.proposed = request.sdp();
        }
      }
    }

    private void followSuccess(SipMessage response, Frame frame, PartyMedia answerer, Moment now) {
      answerer.answeredRequests.put(response.method(), response.cseq());
      switch (response.method()) {
        case "INVITE" -> {
          if (lifetime().answer() == null) {
            leg.cancelEnd();
            lifetime().answered(now);
            forgetUnanswered(response.to().tag());
          }
          answerer.answered = true;
          ringing.clear();
          applyAnswer(response, frame, answerer);
        }
        case "UPDATE", "PRACK" -> applyAnswer(response, frame, answerer);
        case "BYE" -> endDialog(response, now);
        default -> { }
      }
    }

    /**
     * Applies an answer. Before the call is answered it is only a proposal, because other branches may answer as well.
     */
    private void applyAnswer(SipMessage response, Frame frame, PartyMedia answerer) {
      if (lifetime().answer() == null) {
        response.sdp().ifPresent(sdp -> answerer.proposed = Optional.of(sdp));
        return;
      }
      response.sdp().ifPresentOrElse(answerer::agree, answerer::agreeToProposal);
      party(response.from(), frame.destination(), false).agreeToProposal();
    }

    /** Removes the other branches of a forked call after one of them is answered. */
    private void forgetUnanswered(String tag) {
      parties.keySet().removeIf(party -> !party.tag.equals(callerTag) && !party.tag.equals(tag));
    }

    private void followFailure(SipMessage response, Frame frame, Moment now) {
      switch (response.method()) {
        case "INVITE" -> {
          if (lifetime().answer() != null) {
            party(response.from(), frame.destination(), false).proposed = Optional.empty();
          } else if (response.cseq() >= lastInvite && ringing.remove(response.branch()) && ringing.isEmpty()) {
            String how = cancelled ? "cancelled" : "failed: " + response.status() + " " + response.reason();
            leg.end(how, now, cancelled || !isWorthRetrying(response.status()) ? 0 : RETRY_MILLIS);
          }
        }
        case "UPDATE", "PRACK" -> party(response.from(), frame.destination(), false).proposed = Optional.empty();
        case "BYE" -> {
          if (response.status() == 408 || response.status() == 481) {
            endDialog(response, now);
          } else {
            leg.cancelEnd();  // usually the party must send credentials first
          }
        }
        default -> { }
      }
    }

    /** Whether a caller usually tries again: it is redirected, must send credentials, or used a refused extension. */
    private static boolean isWorthRetrying(int status) {
      return status < 400 || status == 401 || status == 407 || status == 420 || status == 422 || status == 488;
    }

    /** Ends a dialog and, with the last one, the call. A forked call can have several answered dialogs. */
    private void endDialog(SipMessage byeResponse, Moment now) {
      String callee = byeResponse.from().tag().equals(callerTag) ? byeResponse.to().tag() : byeResponse.from().tag();
      parties.keySet().removeIf(party -> party.tag.equals(callee));
      if (parties.values().stream().anyMatch(party -> party.answered)) {
        leg.cancelEnd();
      } else {
        leg.endNow("hung up by " + nameOf(byeResponse.from()), now);
      }
    }

    private String nameOf(SipMessage.Party party) {
      return party.tag().equals(callerTag) ? "caller" : "callee";
    }

    /**
     * Returns the media of a party. A party without a description is not kept, because a group of ringing telephones
     * makes many of them. When there are too many parties, an unanswered one is removed.
     *
     * @param matters whether the party is kept
     */
    private PartyMedia party(SipMessage.Party party, Endpoint address, boolean matters) {
      PartyId id = new PartyId(party.tag(), address.ip());
      PartyMedia media = parties.get(id);
      if (media != null) {
        return media;
      }
      media = new PartyMedia();
      if (parties.size() == MAX_PARTIES && matters) {
        parties.entrySet().stream().filter(old -> !old.getValue().answered && !old.getKey().tag.equals(callerTag))
            .map(Map.Entry::getKey).findFirst().ifPresent(parties::remove);
      }
      if (matters && parties.size() < MAX_PARTIES) {
        parties.put(id, media);
      }
      return media;
    }

    @Override
    Map<Endpoint, Use> signalledDestinations() {
      Map<Endpoint, Use> destinations = new LinkedHashMap<>();
      parties.forEach((id, media) -> {
        Direction direction = Direction.to(id.tag.equals(callerTag));
        media.agreed.ifPresent(sdp -> collect(sdp, direction, destinations));
        media.proposed.ifPresent(sdp -> collect(sdp, direction, destinations));
      });
      return destinations;
    }

    private void collect(Sdp sdp, Direction direction, Map<Endpoint, Use> destinations) {
      for (Sdp.Media media : sdp.media()) {
        if (destinations.size() >= MAX_DESTINATIONS) {
          return;
        }
        Use use = new Use(this, leg, direction, media);
        media.rtp().ifPresent(endpoint -> destinations.put(endpoint, use));
        media.rtcp().ifPresent(endpoint -> destinations.putIfAbsent(endpoint, use));
      }
    }

    @Override
    void ended(Moment now) {
      calls.remove(id(), this);
      ended.putLast(id(), new Ended(lastInvite, branches, now));
    }
  }
}
