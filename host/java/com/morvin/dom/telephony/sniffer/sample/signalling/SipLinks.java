package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.Deque;
import java.util.HashMap;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Optional;
import java.util.Set;
import java.util.function.Function;
import java.util.stream.Stream;

/**
 * Finds the legs that are one call: those that a call manager connects, and those of transfers. Each leg has its own
 * Call-ID, so the link is in other places: Replaces (RFC 3891), REFER (RFC 3515), Session-ID (RFC 7989), headers of the
 * call manager that name the Call-ID of another leg, and the addresses of the media. Anyone can write a Call-ID or an
 * address into an INVITE, so its sender must take part in the other leg.
 */
final class SipLinks {
  private static final int MAX_REFERRALS = 256;
  /** The most calls that are compared with a new leg. Real ones share an address with two or three. */
  private static final int MAX_CANDIDATES = 8;
  private static final long REFERRAL_MILLIS = 32_000;
  private static final int MAX_NAMED = 4096;
  private static final int MAX_NAME = 256;
  /** By how much a leg can arrive before the leg that it refers to, when different sniffers see them. */
  private static final long DISORDER_MILLIS = 2_000;

  /**
   * A running call that a leg belongs to.
   *
   * @param turned whether the caller of the leg is on the side of the callee of the call
   */
  record Link(SipCall call, boolean turned) {}

  /** A party was asked to call a target. */
  private static final class Referral {
    private final SipLeg leg;
    private final SipMessage refer;
    private final Set<Address> askedHosts = new HashSet<>();
    private final Moment time;

    Referral(SipLeg leg, SipMessage refer, Moment time) {
      this.leg = leg;
      this.refer = refer;
      this.time = time;
    }

    boolean isOf(SipLeg other, SipMessage message) {
      return leg == other && refer.cseq() == message.cseq() && refer.from().tag().equals(message.from().tag());
    }

    boolean isFollowedBy(SipMessage invite, Frame frame) {
      return askedHosts.contains(frame.source().address()) && refer.referTo().name().equals(invite.to().name());
    }
  }

  private final Function<String, SipLeg> byCallId;
  private final Function<Endpoint, List<Call.Use>> uses;
  private final Map<String, SipLeg> bySession = new HashMap<>();
  /** The Call-IDs of the newest legs that may have named an unknown Call-ID, by that. */
  private final BoundedMap<String, String> naming = new BoundedMap<>(MAX_NAMED);
  private final Deque<Referral> referrals = new ArrayDeque<>();

  /**
   * Finds links.
   *
   * @param byCallId returns the running leg with a Call-ID, or null
   * @param uses returns the uses of a destination by all calls
   */
  SipLinks(Function<String, SipLeg> byCallId, Function<Endpoint, List<Call.Use>> uses) {
    this.byCallId = byCallId;
    this.uses = uses;
  }

  /** Adds a leg that a message begins. */
  void add(SipLeg leg, SipMessage message) {
    callIds(message).filter(id -> id.length() <= MAX_NAME && byCallId.apply(id) == null)
        .forEach(id -> naming.putLast(id, leg.id()));
    if (!leg.sessionId().isEmpty()) {
      bySession.putIfAbsent(leg.sessionId(), leg);
    }
  }

  /** Forgets an ended leg. */
  void remove(SipLeg leg) {
    bySession.remove(leg.sessionId(), leg);
    referrals.removeIf(referral -> referral.leg == leg);
  }

  /** Returns the calls that an INVITE with a new Call-ID belongs to, each once. */
  List<Link> find(SipMessage invite, Frame frame, Moment now) {
    List<Link> links = new ArrayList<>();
    Stream.of(replaced(invite, frame), referred(invite, frame, now), named(invite, frame), sameSession(invite, frame),
            earlier(byCallId.apply(naming.get(invite.callId())), frame, now),
            earlier(bySession.get(invite.sessionId()), frame, now))
        .flatMap(Optional::stream).forEach(links::add);
    if (links.isEmpty()) {
      sameMedia(invite, frame).ifPresent(links::add);
    }
    List<Link> distinct = new ArrayList<>();
    links.stream().filter(link -> distinct.stream().noneMatch(other -> other.call == link.call))
        .forEach(distinct::add);
    return distinct;
  }

  /** The callee keeps its side, and the caller takes the place of the other party of the replaced dialog. */
  private Optional<Link> replaced(SipMessage invite, Frame frame) {
    return invite.replaces().flatMap(dialog -> {
      SipLeg leg = byCallId.apply(dialog.callId());
      boolean fits = leg != null && leg.isParty(dialog.toTag()) && leg.isParty(dialog.fromTag())
          && Stream.of(frame.source(), frame.destination()).anyMatch(end -> leg.call().hasHost(end.address()));
      return !fits ? Optional.empty() : Optional.of(new Link(leg.call(), leg.isOnCallerSide(dialog.toTag())));
    });
  }

  /** The caller was asked to send the INVITE, and keeps its side. */
  private Optional<Link> referred(SipMessage invite, Frame frame, Moment now) {
    referrals.removeIf(referral -> now.since(referral.time) > REFERRAL_MILLIS);
    return referrals.stream().filter(referral -> referral.isFollowedBy(invite, frame)).findFirst().map(referral -> {
      referral.leg.setReferred(false);
      return new Link(referral.leg.call(), !referral.leg.isOnCallerSide(referral.refer.to().tag()));
    });
  }

  private Optional<Link> named(SipMessage invite, Frame frame) {
    return callIds(invite).map(byCallId)
        .filter(leg -> leg != null && leg.call().hasHost(frame.source().address())).findFirst()
        .map(leg -> connected(leg, frame));
  }

  /** Returns the Call-IDs that a message may name. */
  private static Stream<String> callIds(SipMessage message) {
    return message.extensions().stream().map(value -> value.split("[;,\\s]", 2)[0]);
  }

  /** The host that the INVITE calls has begun another leg because of it, and that leg was received first. */
  private static Optional<Link> earlier(SipLeg leg, Frame frame, Moment now) {
    return leg == null || now.since(leg.start()) > DISORDER_MILLIS
        || !leg.calling().equals(frame.destination().address())
        ? Optional.empty() : Optional.of(new Link(leg.call(), leg.isTurned()));
  }

  private Optional<Link> sameSession(SipMessage invite, Frame frame) {
    SipLeg leg = bySession.get(invite.sessionId());
    Address host = frame.source().address();
    return leg == null || leg.calling().equals(host) || !leg.call().hasHost(host) ? Optional.empty()
        : Optional.of(connected(leg, frame));
  }

  /** The host that was called on another leg forwards that call as this one, or calls both parties (RFC 3725). */
  private static Link connected(SipLeg leg, Frame frame) {
    Address host = frame.source().address();
    List<SipLeg> legs = leg.call().sipLegs();
    SipLeg incoming = legs.stream().filter(other -> other.hasCalled(host)).findFirst().orElse(null);
    if (incoming != null) {
      return new Link(leg.call(), incoming.isTurned());
    }
    return new Link(leg.call(), leg.calling().equals(host) ? !leg.isTurned() : leg.isTurned());
  }

  /**
   * A call manager that does not relay media offers the address of a party of a call. The party itself may use its
   * address for another call.
   */
  private Optional<Link> sameMedia(SipMessage invite, Frame frame) {
    Address host = frame.source().address();
    return invite.sdp().stream().flatMap(sdp -> sdp.media().stream()).flatMap(media -> media.rtp().stream())
        .flatMap(address -> uses.apply(address).stream().filter(use -> isManagedBy(use, host, address)))
        .max(Comparator.comparingInt(use -> use.call().number()))
        .map(use -> new Link((SipCall) use.call(), use.direction() == Direction.FROM_CALLER));
  }

  private static boolean isManagedBy(Call.Use use, Address host, Endpoint address) {
    return use.call() instanceof SipCall call && call.isSignalledBy(host)
        && call.sipLegs().stream().noneMatch(leg -> leg.isDescribedBy(host, address));
  }

  /**
   * Returns another call with media between the same two addresses: a call manager has connected the parties directly.
   * A call between the same hosts is an earlier one whose end was missed. One of the addresses is of a given leg.
   */
  Optional<Link> sameStream(SipLeg leg) {
    SipCall call = leg.call();
    Map<Endpoint, Call.Use> own = call.destinations();
    return leg.destinations().entrySet().stream()
        .flatMap(entry -> uses.apply(entry.getKey()).stream()
            .filter(use -> use.call() instanceof SipCall && use.call() != call)
            .map(use -> new Candidate(new Link((SipCall) use.call(), entry.getValue().direction() != use.direction()),
                entry.getValue().direction())))
        .distinct().limit(MAX_CANDIDATES)
        .filter(candidate -> haveOpposite(own, candidate) && !areParallel(call, candidate.link.call)
            && call.sharesHostWith(candidate.link.call))
        .map(Candidate::link).findFirst();
  }

  /** A call that shares a destination of one direction with another call, which is the one that is linked. */
  private record Candidate(Link link, Direction direction) {}

  private static boolean areParallel(SipCall call, SipCall other) {
    return call.sipLegs().stream().anyMatch(leg -> other.sipLegs().stream().anyMatch(leg::isParallelTo));
  }

  /** Whether two calls share a destination of the opposite direction, too. */
  private static boolean haveOpposite(Map<Endpoint, Call.Use> own, Candidate candidate) {
    Map<Endpoint, Call.Use> others = candidate.link.call.destinations();
    Direction opposite = candidate.direction.opposite();
    return own.entrySet().stream().anyMatch(second -> {
      Call.Use other = others.get(second.getKey());
      return other != null && second.getValue().direction() == opposite
          && other.direction() == opposite.turned(candidate.link.turned)
          && other.media().rtp().filter(second.getKey()::equals).isPresent();
    });
  }

  /** Records a REFER. */
  void refer(SipLeg leg, SipMessage refer, Frame frame, Moment now) {
    Referral referral = referrals.stream().filter(known -> known.isOf(leg, refer)).findFirst().orElse(null);
    if (referral == null) {
      referral = new Referral(leg, refer, now);
      referrals.addLast(referral);
      leg.setReferred(true);
      if (referrals.size() > MAX_REFERRALS) {
        referrals.removeFirst().leg.setReferred(false);
      }
    }
    referral.askedHosts.add(frame.destination().address());
  }

  /**
   * Handles the final response to a REFER. Returns the call that the target gives up for this transfer. The target
   * takes the side of the party that has asked for it.
   */
  Optional<Link> referAnswered(SipLeg leg, SipMessage response) {
    Referral referral = referrals.stream().filter(known -> known.isOf(leg, response)).findFirst().orElse(null);
    if (referral == null) {
      return Optional.empty();
    }
    if (response.isFailure()) {
      leg.setReferred(false);
      referrals.remove(referral);
      return Optional.empty();
    }
    return referral.refer.referredReplaces().flatMap(dialog -> {
      SipLeg other = byCallId.apply(dialog.callId());
      boolean fits = other != null && other.isParty(dialog.toTag()) && other.isParty(dialog.fromTag());
      return !fits ? Optional.empty() : Optional.of(new Link(other.call(),
          other.isOnCallerSide(dialog.toTag()) != leg.isOnCallerSide(referral.refer.from().tag())));
    });
  }
}
