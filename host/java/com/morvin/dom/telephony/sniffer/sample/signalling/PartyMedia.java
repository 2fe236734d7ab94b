package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import java.util.HashMap;
import java.util.Map;
import java.util.Optional;
import java.util.stream.Stream;

/** The media of one party on one hop, by offer and answer (RFC 3264). */
final class PartyMedia {
  /**
   * One party on one hop: its tag and its address on that hop. A proxy may relay the media, so the same party can have
   * other media addresses on the next hop.
   */
  record Id(String tag, Address address) {}

  private static final int PARTY_BYTES = 600;

  /** The CSeq of the last request with a description. The same CSeq again is a retransmission. */
  private long lastOffer = -1;
  /** The CSeq of the last successful request of the other party, by method. */
  private final Map<String, Long> answeredRequests = new HashMap<>();
  private Optional<Sdp> agreed = Optional.empty();
  private Optional<Sdp> proposed = Optional.empty();

  /** Whether a response of this party is a retransmission. */
  boolean hasAnswered(SipMessage response) {
    return response.cseq() <= answeredRequests.getOrDefault(response.method(), -1L);
  }

  /** Records a successful response of this party. */
  void answered(SipMessage response) {
    answeredRequests.put(response.method(), response.cseq());
  }

  /** Adds the proposal of a request. The agreed description stays valid until the offer is answered. */
  void offer(SipMessage request) {
    if (request.cseq() > lastOffer) {
      lastOffer = request.cseq();
      request.sdp().ifPresent(this::propose);
    }
  }

  /** Whether the request is as new as the last offer. */
  boolean isCurrent(SipMessage request) {
    return request.cseq() >= lastOffer;
  }

  void propose(Sdp sdp) {
    proposed = Optional.of(sdp);
  }

  void agree(Sdp sdp) {
    agreed = Optional.of(sdp);
    proposed = Optional.empty();
  }

  void agreeToProposal() {
    proposed.ifPresent(this::agree);
  }

  /** Applies what the other party has answered to the descriptions of this one. */
  void decide(PartyMedia answerer) {
    answerer.descriptions().reduce((first, last) -> last).ifPresent(answer -> {
      agreed = agreed.map(offer -> offer.answeredBy(answer));
      proposed = proposed.map(offer -> offer.answeredBy(answer));
    });
  }

  void withdrawProposal() {
    proposed = Optional.empty();
  }

  /** Returns the approximate memory of the party in bytes. */
  int size() {
    return PARTY_BYTES + descriptions().mapToInt(Sdp::size).sum();
  }

  /** Returns the valid descriptions: the agreed one before the proposed one. */
  Stream<Sdp> descriptions() {
    return Stream.concat(agreed.stream(), proposed.stream());
  }
}
