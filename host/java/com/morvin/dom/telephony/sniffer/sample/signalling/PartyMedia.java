package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import java.util.stream.Stream;

/**
 * The media of one party on one hop, by offer and answer (RFC 3264).
 *
 * <p>A forged message can have any CSeq and come before the genuine one. So no number is too old, a message with the
 * same number and another description counts as well, and a refused offer is remembered: it may be answered yet.
 */
final class PartyMedia {
  /**
   * One party on one hop: its tag and its address on that hop. A proxy may relay the media, so the same party can have
   * other media addresses on the next hop.
   */
  record Id(String tag, Address address) {}

  // Limits against hostile traffic.
  private static final int MAX_DESCRIPTIONS = 8;
  private static final int MAX_BYTES = 16 << 10;
  private static final int MAX_KNOWN = 16;
  private static final int PARTY_BYTES = 600;
  private static final int KNOWN_BYTES = 150;

  /** A description in a message with a CSeq. */
  private record Described(Sdp sdp, long cseq, boolean refused) {
    Described with(Sdp other) {
      return new Described(other, cseq, refused);
    }

    Described refusedBy(SipMessage failure) {
      return new Described(sdp, cseq, refused || cseq == failure.cseq());
    }
  }

  /** The last messages that have had an effect. The same again is a retransmission. */
  private final BoundedMap<String, Boolean> known = new BoundedMap<>(MAX_KNOWN);
  private List<Described> agreed = List.of();
  private List<Described> proposed = List.of();

  /** Whether a message of this party is a retransmission, or a provisional response that comes late. */
  boolean hasSent(SipMessage message) {
    return known.containsKey(message.isRequest() || message.isSuccess() ? key(message) : answerKey(message));
  }

  /** Records a message of this party that has an effect. */
  void sent(SipMessage message) {
    known.putLast(key(message), true);
    if (message.isSuccess()) {
      known.putLast(answerKey(message), true);
    }
  }

  private static String key(SipMessage message) {
    return message.status() + answerKey(message) + " " + message.sdp().hashCode();
  }

  private static String answerKey(SipMessage message) {
    return " " + message.method() + " " + message.cseq();
  }

  /** Adds the proposal of a request. The agreed description stays valid until the offer is answered. */
  void offer(SipMessage request) {
    if (!hasSent(request)) {
      sent(request);
      propose(request);
    }
  }

  /** Adds the description of a message as a proposal. */
  void propose(SipMessage message) {
    message.sdp().ifPresent(sdp -> proposed = added(proposed, new Described(sdp, message.cseq(), false)));
  }

  /** Whether this party has sent an INVITE without a description, which the ACK then has. */
  boolean hasSentInvite(long cseq) {
    return known.containsKey("0 INVITE " + cseq + " " + Optional.empty().hashCode());
  }

  /**
   * Makes the description of an answer the agreed one, or else what was proposed with its CSeq. An answer to a request
   * that was not seen does not replace an agreed one: both are valid.
   */
  void answer(SipMessage answer, boolean isExpected) {
    if (isExpected || agreed.isEmpty()) {
      agree(answer);
    } else {
      propose(answer);
    }
  }

  private void agree(SipMessage answer) {
    if (answer.sdp().isEmpty()) {
      agreeToProposal(answer);
      return;
    }
    // A request can have several answers. Any of them can be forged, so all are kept.
    agreed = added(agreed.stream().filter(other -> other.cseq == answer.cseq()).toList(),
        new Described(answer.sdp().get(), answer.cseq(), false));
    removeProposal(answer);
  }

  /** Makes what was proposed with the CSeq of an answer the agreed description. */
  void agreeToProposal(SipMessage answer) {
    List<Described> answered = proposed.stream().filter(offer -> offer.cseq == answer.cseq())
        .map(offer -> new Described(offer.sdp, offer.cseq, false)).toList();
    if (!answered.isEmpty()) {
      agreed = answered;
      removeProposal(answer);
    }
  }

  private void removeProposal(SipMessage answer) {
    proposed = proposed.stream().filter(offer -> offer.cseq != answer.cseq()).toList();
  }

  private static List<Described> added(List<Described> old, Described description) {
    List<Described> all = new ArrayList<>(old);
    all.remove(description);
    all.add(description);
    while (all.size() > MAX_DESCRIPTIONS || all.size() > 1 && bytes(all) > MAX_BYTES) {
      all.remove(0);
    }
    return all;
  }

  private static int bytes(List<Described> descriptions) {
    return descriptions.stream().mapToInt(description -> description.sdp.size()).sum();
  }

  /** Applies what the other party has answered to the descriptions of this one. */
  void decide(PartyMedia answerer) {
    answerer.descriptions().reduce((first, last) -> last).ifPresent(answer -> {
      agreed = agreed.stream().map(offer -> offer.with(offer.sdp.answeredBy(answer))).toList();
      proposed = proposed.stream().map(offer -> offer.with(offer.sdp.answeredBy(answer))).toList();
    });
  }

  /** Withdraws what was proposed with the CSeq of a failure. */
  void withdrawProposal(SipMessage failure) {
    proposed = proposed.stream().map(offer -> offer.refusedBy(failure)).toList();
  }

  /** Returns the approximate memory of the party in bytes. */
  int size() {
    return PARTY_BYTES + KNOWN_BYTES * known.size() + bytes(agreed) + bytes(proposed);
  }

  /** Returns the valid descriptions: the agreed ones before the proposed ones. */
  Stream<Sdp> descriptions() {
    return Stream.concat(agreed.stream(), proposed.stream()).filter(description -> !description.refused)
        .map(Described::sdp);
  }
}
