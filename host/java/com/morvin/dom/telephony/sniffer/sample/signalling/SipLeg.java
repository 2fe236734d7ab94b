package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.util.Comparator;
import java.util.HashMap;
import java.util.HashSet;
import java.util.LinkedHashMap;
import java.util.LinkedHashSet;
import java.util.Map;
import java.util.Set;
import java.util.function.Function;
import java.util.stream.Stream;

/**
 * A leg of a SIP call: the dialogs of one Call-ID (RFC 3261), captured on either side of a proxy.
 *
 * <p>Messages that do not fit the leg are ignored, because anyone can send them: a request within a dialog needs the
 * tags of the dialog and must pass between hosts that take part in the leg. A failure needs the transaction as well.
 */
final class SipLeg extends Leg {
  // Limits against hostile traffic.
  private static final int MAX_PARTIES = 64;
  private static final int MAX_BRANCHES = 64;
  private static final int MAX_TAGS = 64;
  private static final int MAX_DESTINATIONS = 64;
  private static final int MAX_BYTES = 64 << 10;
  private static final int MAX_OFFERS = 2;
  private static final int MAX_OFFER_BYTES = 4 << 10;
  private static final int LEG_BYTES = 8500;
  private static final int ENTRY_BYTES = 200;

  /** The requests whose success can change the destinations of media. */
  private static final Set<String> FOLLOWED = Set.of("INVITE", "UPDATE", "PRACK", "BYE");

  /** The time in which a rejected call may be tried again, with credentials or at another address. */
  private static final long RETRY_MILLIS = 5_000;
  /** The time in which a BYE or a CANCEL must be answered (RFC 3261: 32 s). */
  static final long BYE_TIMEOUT_MILLIS = 32_000;

  /** A host has described a destination as its own. */
  private record Described(Address host, Endpoint destination) {}

  private final Set<Described> described = new HashSet<>();
  /**
   * Whether a destination is one of the caller, by the party whose host described it as its own first. A later message
   * does not give it to the other party.
   */
  private final Map<Endpoint, Boolean> owners = new HashMap<>();
  private final SipParticipants participants = new SipParticipants();
  /** The tags of the callees whose answer has not been followed by a BYE. */
  private final Set<String> answered = new HashSet<>();
  /** The keys of the last requests. */
  private final BoundedMap<String, Boolean> requests = new BoundedMap<>(MAX_BRANCHES);
  private final Map<PartyMedia.Id, PartyMedia> parties = new LinkedHashMap<>();
  /** The branches of the INVITEs of this attempt; {@code ringing} holds those without a final response. */
  private final Set<String> branches = new HashSet<>();
  private final Set<String> ringing = new LinkedHashSet<>();
  private final Set<String> cancelled = new HashSet<>();
  /** The CSeq and the tags of the last pressed keys. */
  private final BoundedMap<String, Boolean> lastKeys = new BoundedMap<>(MAX_TAGS);
  private final String sessionId;
  /** The hosts that have sent and received the INVITE, on the first hop and on all hops. */
  private final Address calling;
  private final Set<Address> called = new HashSet<>();
  /** The destinations by the last {@link #follow}; null when they have to be found again. */
  private Map<Endpoint, Call.Use> destinations;
  private SipCall call;
  private Moment lastMessage;
  private long lastInvite;
  private boolean isAnswered;
  private boolean isReferred;

  /** Makes a leg. Its first message is an INVITE or, when that was not seen, an answer to it. */
  SipLeg(SipMessage first, Frame frame, Moment now) {
    super(first.callId(), first.caller().uri(), first.to().uri(), now);
    sessionId = first.sessionId();
    calling = (first.isRequest() ? frame.source() : frame.destination()).address();
    lastMessage = now;
    participants.addCaller(first.from().tag());
    participants.addCallee(first.to().tag());
    if (!first.isRequest("INVITE")) {
      beginLate(first, frame);
    } else if (first.to().tag().isEmpty()) {
      markSeenFromStart();
    }
  }

  /** Assumes the INVITE that was not seen. */
  private void beginLate(SipMessage answer, Frame frame) {
    participants.addHosts(answer, frame);
    called.add((answer.isRequest() ? frame.destination() : frame.source()).address());
    lastInvite = answer.cseq();
    branches.add(answer.branch());
    if (answer.isRequest()) {
      isAnswered = true;
      answered.add(answer.to().tag());
    } else {
      requests.putLast(transaction(answer), true);
      ringing.add(answer.branch());
    }
  }

  /**
   * Whether a leg can begin with a message because its INVITE was not seen. The message describes media. It is a
   * provisional or successful response to the INVITE, or the ACK that answers an offer in such a response.
   */
  static boolean canBegin(SipMessage message) {
    boolean answers = message.isRequest("ACK")
        || !message.isRequest() && !message.isFailure() && message.method().equals("INVITE");
    return answers && message.sdp().isPresent() && !message.from().tag().isEmpty() && !message.to().tag().isEmpty();
  }

  /** Whether a message that can begin a leg shows that the INVITE was accepted. */
  static boolean isAnswer(SipMessage message) {
    return message.isSuccess() || message.isRequest("ACK");
  }

  /** Returns the call that the leg belongs to. */
  SipCall call() {
    return call;
  }

  void setCall(SipCall owner) {
    call = owner;
    destinations = null;
  }

  @Override
  void turn() {
    super.turn();
    destinations = null;
  }

  /** Returns the identity of the session (RFC 7989); empty when there is none. */
  String sessionId() {
    return sessionId;
  }

  /** Returns the host that has sent the first INVITE. */
  Address calling() {
    return calling;
  }

  /** Returns the hosts that have sent and received INVITEs. */
  Stream<Address> hosts() {
    return Stream.concat(Stream.of(calling), called.stream());
  }

  /** Whether the INVITE was sent to a host. */
  boolean hasCalled(Address host) {
    return called.contains(host);
  }

  /** Whether a host takes part in the signalling. */
  boolean hasHost(Address host) {
    return participants.hasHost(host);
  }

  /** Whether both legs are between the same hosts. */
  boolean isParallelTo(SipLeg other) {
    return calling.equals(other.calling) && called.stream().anyMatch(other.called::contains)
        || called.contains(other.calling) && other.called.contains(calling);
  }

  /** Whether a host has described a destination as its own. */
  boolean isDescribedBy(Address host, Endpoint destination) {
    destinations();
    return described.contains(new Described(host, destination));
  }

  /** Whether a tag is that of a party of the leg. */
  boolean isParty(String tag) {
    return participants.isParty(tag);
  }

  /** Whether the party with a tag is on the side of the caller of the call. */
  boolean isOnCallerSide(String tag) {
    return participants.isCaller(tag) != isTurned();
  }

  /** Records that a party was asked to call a third party. The end of the call is delayed until that call can begin. */
  void setReferred(boolean referred) {
    isReferred = referred;
  }

  /** Ends a leg that was not answered in time. */
  void expire(Moment now, long millis) {
    if (ending() == null && !isAnswered && !hasMedia() && now.since(lastMessage) >= millis) {
      end("timeout", now, 0);
    }
  }

  /** Handles a message. Returns whether it fits the leg; otherwise it has no effect. */
  boolean follow(SipMessage message, Frame frame, Moment now) {
    if (message.isRequest() ? !fitsRequest(message, frame) : !fitsResponse(message, frame)) {
      return false;
    }
    lastMessage = now;
    destinations = null;
    call.changed();
    if (message.isRequest()) {
      requests.putLast(transaction(message), true);
      followRequest(message, frame, now);
    } else if (FOLLOWED.contains(message.method())) {
      followResponse(message, frame, now);
    }
    return true;
  }

  /** Returns the key of a transaction on one hop. */
  private static String transaction(SipMessage message) {
    return message.method() + " " + message.cseq() + " " + message.branch();
  }

  private boolean fitsRequest(SipMessage request, Frame frame) {
    return switch (request.method()) {
      case "INVITE" -> fitsAttempt(request, frame) || fitsRenewal(request, frame);
      case "CANCEL" -> participants.include(frame) && ringing.contains(request.branch());
      default -> isWithinDialog(request, frame);
    };
  }

  /** Whether the message is an INVITE that begins the leg, forwards it, or repeats it with another tag. */
  private boolean fitsAttempt(SipMessage invite, Frame frame) {
    String tag = invite.from().tag();
    boolean fits = branches.isEmpty() || invite.to().tag().isEmpty()
        && (participants.isCaller(tag) || participants.hasHost(frame.source().address()));
    if (fits) {
      participants.addCaller(tag);
      participants.addHosts(invite, frame);
      if (called.size() < MAX_BRANCHES) {
        called.add(frame.destination().address());
      }
    }
    return fits;
  }

  /** Whether the message is an INVITE within a dialog, which may take another path than the first one. */
  private boolean fitsRenewal(SipMessage invite, Frame frame) {
    boolean fits = participants.include(invite) && participants.hasHost(frame.source().address());
    if (fits) {
      participants.addHosts(invite, frame);
    }
    return fits;
  }

  private boolean fitsResponse(SipMessage response, Frame frame) {
    boolean known = requests.containsKey(transaction(response));
    boolean fits = isParty(response.from().tag()) && (known || participants.include(frame));
    if (response.method().equals("BYE")) {
      return fits && isWithinDialog(response, frame) && (known || response.isSuccess());
    }
    if (response.isFailure()) {
      return fits && known && participants.include(frame);
    }
    if (fits && response.method().equals("INVITE")) {
      participants.keepCaller(response.from().tag());
      participants.addCallee(response.to().tag());
      participants.addHosts(response, frame);
    }
    return fits;
  }

  private boolean isWithinDialog(SipMessage message, Frame frame) {
    return participants.include(frame) && participants.include(message);
  }

  private void followRequest(SipMessage request, Frame frame, Moment now) {
    PartyMedia sender = party(request.from(), frame.source(), request.sdp().isPresent());
    switch (request.method()) {
      case "INVITE" -> {
        lastInvite = Math.max(lastInvite, request.cseq());
        if (!isAnswered && branches.size() < MAX_BRANCHES && branches.add(request.branch())) {
          cancelEnd();
          ringing.add(request.branch());
        }
        sender.offer(request);
      }
      case "UPDATE", "PRACK" -> sender.offer(request);
      case "ACK" -> {
        if (request.sdp().isPresent() && !sender.hasSent(request)) {
          sender.sent(request);
          sender.answer(request, sender.hasSentInvite(request.cseq()));
          party(request.to(), frame.destination(), false).decide(sender);
        }
      }
      case "CANCEL" -> {
        cancelled.add(request.branch());
        if (!isAnswered && cancelled.containsAll(ringing)) {
          end("cancelled", now, BYE_TIMEOUT_MILLIS);
        }
      }
      case "BYE" -> hangUp(request, now, BYE_TIMEOUT_MILLIS);
      default -> { }
    }
  }

  /** Schedules the end, unless an earlier BYE has done so. */
  private void hangUp(SipMessage bye, Moment now, long delay) {
    if (ending() == null || isOverruled()) {
      end("hung up by " + nameOf(bye.from()), now, delay);
    }
  }

  private void followResponse(SipMessage response, Frame frame, Moment now) {
    PartyMedia answerer =
        party(response.to(), frame.source(), response.isSuccess() || response.sdp().isPresent());
    if (answerer.hasSent(response)) {
      return;
    }
    if (response.isSuccess()) {
      answerer.sent(response);
      followSuccess(response, frame, answerer, now);
    } else if (response.isFailure()) {
      followFailure(response, frame, now);
    } else if (response.method().equals("INVITE")) {
      answerer.propose(response);
      party(response.from(), frame.destination(), false).decide(answerer);
    }
  }

  private void followSuccess(SipMessage response, Frame frame, PartyMedia answerer, Moment now) {
    switch (response.method()) {
      case "INVITE" -> {
        cancelEnd();
        if (!isAnswered) {
          isAnswered = true;
          revive();
          forgetUnanswered(response.to().tag());
        }
        if (answered.size() < MAX_TAGS && !participants.isCaller(response.to().tag())) {
          answered.add(response.to().tag());
        }
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
    PartyMedia offerer = party(response.from(), frame.destination(), false);
    if (!isAnswered) {
      answerer.propose(response);
    } else {
      answerer.answer(response, requests.containsKey(transaction(response)));
      offerer.agreeToProposal(response);
    }
    offerer.decide(answerer);
  }

  /** Removes the other branches of a forked call after one of them is answered. */
  private void forgetUnanswered(String tag) {
    parties.keySet().removeIf(party -> !participants.isCaller(party.tag()) && !party.tag().equals(tag));
  }

  private void followFailure(SipMessage response, Frame frame, Moment now) {
    switch (response.method()) {
      case "INVITE" -> {
        if (isAnswered) {
          party(response.from(), frame.destination(), false).withdrawProposal(response);
        } else if ((!response.branch().isEmpty() || response.cseq() >= lastInvite)
            && ringing.remove(response.branch()) && ringing.isEmpty()) {
          boolean isCancelled = cancelled.contains(response.branch());
          String how = isCancelled ? "cancelled" : "failed: " + response.status() + " " + response.reason();
          end(how, now, isCancelled || !isWorthRetrying(response.status()) ? 0 : RETRY_MILLIS);
        }
      }
      case "UPDATE", "PRACK" -> party(response.from(), frame.destination(), false).withdrawProposal(response);
      case "BYE" -> {
        if (response.status() == 408 || response.status() == 481) {
          endDialog(response, now);
        } else {
          endInPart("hung up by " + nameOf(response.from()));  // usually the party must send credentials first
        }
      }
      default -> { }
    }
  }

  /** Whether a caller usually tries again: after a redirection, a request for credentials, or a refused extension. */
  private static boolean isWorthRetrying(int status) {
    return status < 400 || status == 401 || status == 407 || status == 420 || status == 422 || status == 488;
  }

  /**
   * Ends a dialog and, with the last one, the leg. A forked call can have several answered dialogs. When the BYE was
   * not seen, its answer counts like a BYE without an answer.
   */
  private void endDialog(SipMessage byeResponse, Moment now) {
    String from = byeResponse.from().tag();
    String callee = participants.isCaller(from) ? byeResponse.to().tag() : from;
    answered.remove(callee);
    if (!answered.isEmpty()) {
      parties.keySet().removeIf(party -> party.tag().equals(callee));
      endInPart("hung up by " + nameOf(byeResponse.from()));
    } else if (!requests.containsKey(transaction(byeResponse))) {
      hangUp(byeResponse, now, BYE_TIMEOUT_MILLIS);
    } else {
      confirmEnd("hung up by " + nameOf(byeResponse.from()), now, isReferred ? RETRY_MILLIS : call.delayOfEnd(now));
    }
  }

  private String nameOf(SipMessage.Party party) {
    return isOnCallerSide(party.tag()) ? "caller" : "callee";
  }

  @Override
  int size() {
    int entries = requests.size() + branches.size() + ringing.size() + called.size() + described.size();
    return LEG_BYTES + ENTRY_BYTES * entries + partyBytes();
  }

  /**
   * Returns the media of a party. A party without a description is not kept, because a group of ringing telephones
   * makes many of them. When there are too many parties, one without an answer is removed.
   *
   * @param matters whether the party is kept
   */
  private PartyMedia party(SipMessage.Party party, Endpoint address, boolean matters) {
    PartyMedia.Id id = new PartyMedia.Id(party.tag(), address.address());
    PartyMedia media = parties.get(id);
    if (media != null) {
      return media;
    }
    media = new PartyMedia();
    if (matters) {
      while (parties.size() == MAX_PARTIES || partyBytes() >= MAX_BYTES) {
        parties.keySet().stream().min(Comparator.comparingInt(this::rank)).ifPresent(parties::remove);
      }
      parties.put(id, media);
    }
    return media;
  }

  private int partyBytes() {
    return parties.values().stream().mapToInt(PartyMedia::size).sum();
  }

  /** Returns the rank of a party: the oldest one with the lowest rank makes room. Its media may go on. */
  private int rank(PartyMedia.Id party) {
    boolean isCaller = participants.isCaller(party.tag());
    return isCaller && participants.isKept(party.tag()) ? 2 : !isCaller && answered.contains(party.tag()) ? 1 : 0;
  }

  /** Whether a request reports a pressed key that was not reported before, on another hop or by another sniffer. */
  boolean hasNewKey(SipMessage request) {
    return !request.digits().isEmpty() && request.isRequest("INFO")
        && lastKeys.put(request.cseq() + " " + request.from().tag(), true) == null;
  }

  /** Returns the direction of media sent by a party. */
  Direction directionFrom(SipMessage.Party party) {
    return Direction.to(!isOnCallerSide(party.tag()));
  }

  /** Whether the leg was answered. */
  boolean isAnswered() {
    return isAnswered;
  }

  /** Returns the destinations of the media of this leg: the same map until one changes. */
  Map<Endpoint, Call.Use> destinations() {
    if (destinations == null) {
      destinations = new LinkedHashMap<>();
      described.clear();
      collect(media -> media.rtp().stream(), true);
      collect(media -> media.rtp().stream(), false);
      collect(media -> media.rtcp().stream(), true);
      collect(media -> media.rtcp().stream(), false);
      collect(media -> media.alternatives().stream(), false);
      parties.forEach((id, party) -> party.descriptions().flatMap(sdp -> sdp.media().stream())
          .flatMap(media -> media.rtp().stream()).filter(destinations::containsKey)
          .forEach(rtp -> described.add(new Described(id.address(), rtp))));
    }
    return destinations;
  }

  /**
   * Adds addresses of all media. Those that all telephones use come first, so that a forged description with many
   * others cannot take their places. An agreed description goes before a proposed one of the same address. That of a
   * host itself goes before those of others, which may take it for the other party.
   *
   * @param own whether only addresses of the host that described them are added
   */
  private void collect(Function<Sdp.Media, Stream<Endpoint>> addresses, boolean own) {
    parties.forEach((id, party) -> party.descriptions().flatMap(sdp -> sdp.media().stream()).forEach(media ->
        addresses.apply(media).filter(endpoint -> !own || endpoint.address().equals(id.address()))
            .filter(endpoint -> destinations.size() < MAX_DESTINATIONS)
            .forEach(endpoint -> add(endpoint, participants.isCaller(id.tag()), media, own))));
  }

  private void add(Endpoint endpoint, boolean isCaller, Sdp.Media media, boolean own) {
    if (own && owners.size() < MAX_DESTINATIONS) {
      owners.putIfAbsent(endpoint, isCaller);
    }
    destinations.putIfAbsent(endpoint, new Call.Use(call, this, Direction.to(isCaller != isTurned()), media));
  }

  /** Whether a host has described a destination as its own. */
  boolean hasOwner(Endpoint destination) {
    return owners.containsKey(destination);
  }

  /** Returns the direction of media sent to a destination that a host has described as its own. */
  Direction directionToOwner(Endpoint destination) {
    return Direction.to(owners.get(destination) != isTurned());
  }

  /** Returns what is known about the INVITEs, to recognise repeated ones after the end of the leg. */
  Attempt attempt(Moment end) {
    Map<PartyMedia.Id, PartyMedia> offers = new LinkedHashMap<>();
    if (!isAnswered) {
      parties.entrySet().stream().filter(party -> participants.isCaller(party.getKey().tag()))
          .filter(party -> party.getValue().size() <= MAX_OFFER_BYTES).limit(MAX_OFFERS)
          .forEach(party -> offers.put(party.getKey(), party.getValue()));
    }
    return new Attempt(lastInvite, branches, end, isAnswered, offers);
  }

  /** Takes over the offers of an attempt that seemed to have failed. */
  void resume(Attempt attempt) {
    parties.putAll(attempt.offers);
  }

  /**
   * The INVITEs of an ended leg: the last CSeq, the branches, and the time of the end. A sender may repeat an INVITE,
   * and a sniffer may deliver it late. An INVITE on another branch is a new attempt, although a forking proxy keeps
   * Call-ID and CSeq, unless it was sent within the dialog.
   *
   * @param offers the media of the caller, when the attempt was not answered
   */
  record Attempt(long invite, Set<String> branches, Moment end, boolean isAnswered,
      Map<PartyMedia.Id, PartyMedia> offers) {
    boolean isFollowedBy(SipMessage message, Moment now) {
      boolean known = message.branch().isEmpty() || !message.to().tag().isEmpty() ? message.cseq() <= invite
          : branches.contains(message.branch());
      boolean early = now.since(end) < BYE_TIMEOUT_MILLIS || now.stamp() < end.stamp();
      boolean late = early && (known || message.cseq() < invite);
      return message.isRequest("INVITE") && !late;
    }
  }
}
