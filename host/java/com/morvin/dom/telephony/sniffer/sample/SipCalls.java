package com.morvin.dom.telephony.sniffer.sample;

import java.util.HashMap;
import java.util.HashSet;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.Optional;
import java.util.Set;

/** Follows SIP calls by their messages, whichever side of a proxy they were seen on. */
final class SipCalls {
  // Bounds against hostile traffic.
  private static final int MAX_LEGS = 16;
  private static final int MAX_TRANSACTIONS = 16;
  private static final int MAX_FAILED = 4096;

  /** How long a rejected call may take to be tried again, with credentials or at another place. */
  private static final long RETRY_MILLIS = 5_000;
  /** How long a party may take to answer a BYE or a CANCEL; RFC 3261 gives it 32 seconds. */
  private static final long GOODBYE_MILLIS = 32_000;

  private final Recorder recorder;
  private final Map<String, SipCall> calls = new HashMap<>();

  /** The last INVITE of a call that failed, and when: its sender may repeat it for a while. */
  private record Failed(long invite, long time) {}

  private final Map<String, Failed> failed = new LinkedHashMap<>() {
    private static final long serialVersionUID = 1;

    @Override
    protected boolean removeEldestEntry(Map.Entry<String, Failed> eldest) {
      return size() > MAX_FAILED;
    }
  };

  SipCalls(Recorder recorder) {
    this.recorder = recorder;
  }

  void accept(Frame frame, long now) {
    Optional<SipMessage> parsed = SipMessage.parse(frame.payload());
    if (parsed.isEmpty()) {
      recorder.malformed();
      return;
    }
    SipMessage message = parsed.get();
    SipCall call = calls.get(message.callId());
    if (call == null) {
      if (!message.isRequest("INVITE") || hasFailed(message, now) || !recorder.hasRoom(now)) {
        return;
      }
      call = new SipCall(message, now);
      calls.put(message.callId(), call);
    }
    call.active(now);
    String end = call.follow(message, frame, now);
    if (end != null) {
      recorder.end(call, end, now);
    } else {
      recorder.update(call, now);
    }
  }

  private boolean hasFailed(SipMessage invite, long now) {
    Failed last = failed.get(invite.callId());
    return last != null && invite.cseq() <= last.invite && now - last.time < GOODBYE_MILLIS;
  }

  /**
   * One party as seen on one hop: who, by its tag, and the address it was heard at. A proxy passes messages on and may
   * relay the media, so the same party can have other media addresses on the next hop.
   */
  private record LegId(String tag, int ip) {}

  /** The media of one party on one hop by offer and answer (RFC 3264). */
  private static final class Leg {
    /** Of the latest request with a description; the same again is a retransmission. */
    private long lastOffer = -1;
    /** Of the requests of the other party that have been answered with success, by method. */
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
    /** Branches of the INVITEs of this attempt that no final response has come for. */
    private final Set<String> ringing = new HashSet<>();
    private long lastInvite;
    private boolean cancelled;

    SipCall(SipMessage invite, long now) {
      super(recorder.nextNumber(), "SIP", invite.callId(), invite.from().uri(), invite.to().uri(),
          Text.fileNamePart(invite.from().name()) + "-" + Text.fileNamePart(invite.to().name()), now,
          recorder.directory());
      callerTag = invite.from().tag();
    }

    /** Returns how the call ended, or null while it has not. */
    String follow(SipMessage message, Frame frame, long now) {
      if (message.isRequest()) {
        followRequest(message, frame, now);
        return null;
      }
      Leg answerer = leg(message.to(), frame.source());
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
      Leg sender = leg(request.from(), frame.source());
      switch (request.method()) {
        case "INVITE" -> {
          lastInvite = Math.max(lastInvite, request.cseq());
          if (!isAnswered()) {
            goOn();
            if (ringing.size() < MAX_TRANSACTIONS) {
              ringing.add(request.branch());
            }
          }
          offer(sender, request);
        }
        case "UPDATE", "PRACK" -> offer(sender, request);
        case "ACK" -> request.sdp().filter(sdp -> request.cseq() >= sender.lastOffer).ifPresent(sender::agree);
        case "CANCEL" -> {
          if (!isAnswered()) {
            cancelled = true;
            endAt(now + GOODBYE_MILLIS, "cancelled");
          }
        }
        case "BYE" -> endAt(now + GOODBYE_MILLIS, "hung up by " + nameOf(request.from()));
        default -> { }
      }
    }

    /** Until it is answered the old description stays in force beside the new one. */
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
            goOn();
            answered(now);
            forgetUnanswered(response.to().tag());
          }
          answerer.answered = true;
          ringing.clear();
          settle(response, frame, answerer);
        }
        case "UPDATE", "PRACK" -> settle(response, frame, answerer);
        case "BYE" -> {
          return endOf(response);
        }
        default -> { }
      }
      return null;
    }

    /** Before the call is answered, answers are proposals too: another branch may have made others. */
    private void settle(SipMessage response, Frame frame, Leg answerer) {
      if (!isAnswered()) {
        response.sdp().ifPresent(sdp -> answerer.proposed = Optional.of(sdp));
        return;
      }
      response.sdp().ifPresentOrElse(answerer::agree, answerer::agreeToProposal);
      leg(response.from(), frame.destination()).agreeToProposal();
    }

    /** When one branch of a forked call is answered, the others are given up. */
    private void forgetUnanswered(String tag) {
      legs.keySet().removeIf(leg -> !leg.tag.equals(callerTag) && !leg.tag.equals(tag));
    }

    private String followFailure(SipMessage response, Frame frame, long now) {
      switch (response.method()) {
        case "INVITE" -> {
          if (isAnswered()) {
            leg(response.from(), frame.destination()).proposed = Optional.empty();
          } else if (response.cseq() >= lastInvite && ringing.remove(response.branch()) && ringing.isEmpty()) {
            String how = cancelled ? "cancelled" : "failed: " + response.status() + " " + response.reason();
            if (cancelled || !isWorthRetrying(response.status())) {
              return how;
            }
            endAt(now + RETRY_MILLIS, how);
          }
        }
        case "UPDATE", "PRACK" -> leg(response.from(), frame.destination()).proposed = Optional.empty();
        case "BYE" -> {
          if (response.status() == 408 || response.status() == 481) {
            return endOf(response);
          }
          goOn();  // most likely the party is asked for credentials first
        }
        default -> { }
      }
      return null;
    }

    /** Whether the caller mostly tries again at once: redirected, asked for credentials, or refused an extension. */
    private static boolean isWorthRetrying(int status) {
      return status < 400 || status == 401 || status == 407 || status == 420 || status == 422 || status == 488;
    }

    /** A forked call can have several answered dialogs; it ends with the last. */
    private String endOf(SipMessage byeResponse) {
      String callee = byeResponse.from().tag().equals(callerTag) ? byeResponse.to().tag() : byeResponse.from().tag();
      legs.keySet().removeIf(leg -> leg.tag.equals(callee));
      if (legs.values().stream().anyMatch(leg -> leg.answered)) {
        goOn();
        return null;
      }
      return "hung up by " + nameOf(byeResponse.from());
    }

    private String nameOf(SipMessage.Party party) {
      return party.tag().equals(callerTag) ? "caller" : "callee";
    }

    private Leg leg(SipMessage.Party party, Endpoint address) {
      LegId id = new LegId(party.tag(), address.ip());
      Leg leg = legs.get(id);
      if (leg == null) {
        leg = new Leg();
        if (legs.size() < MAX_LEGS) {
          legs.put(id, leg);
        }
      }
      return leg;
    }

    @Override
    Map<Endpoint, Use> destinations() {
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
        Use use = new Use(this, direction, media);
        media.rtp().ifPresent(endpoint -> destinations.put(endpoint, use));
        media.rtcp().ifPresent(endpoint -> destinations.putIfAbsent(endpoint, use));
      }
    }

    @Override
    void ended(long now) {
      calls.remove(id, this);
      if (!isAnswered()) {
        failed.remove(id);
        failed.put(id, new Failed(lastInvite, now));
      }
    }
  }
}
