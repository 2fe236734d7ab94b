#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <span>
#include <string>

#include "forwarding/RtpDestinations.h"
#include "network/NetworkSink.h"
#include "recorder/FrameHeader.h"
#include "signalling/H323Parser.h"
#include "signalling/SipHelper.h"
#include "statistics/Statistics.h"

namespace voip {

/// Decides what an item of the network is to the recorder, and fills the header that it is forwarded with. Consumer
/// only, but for lastClass().
class Classifier {
 public:
  Classifier(const RtpDestinations& destinations, Statistics& statistics)
      : destinations_(destinations), h323Parser_(&statistics) {}

  /// Whether SIP requests to URIs other than sip: count as SIP.
  void setSipAnyUri(bool on) { sipAnyUri_ = on; }
  bool takesAnyUri() const { return sipAnyUri_; }

  H323Parser& h323Parser() { return h323Parser_; }

  /// The class of a datagram: SIP by its start line, RTP by its destination, else None. kFrameSlack readable bytes
  /// follow the payload. Fills the header.
  FrameProtocol classify(const Datagram& datagram);

  /// Fills the header for an item of a class that is known.
  void setClass(FrameProtocol protocol, const FlowEnds& ends, std::size_t payloadLength);

  /// The description of one H.323 segment or TPKT between `ends`, without its last character. Returns false when there
  /// is nothing to forward. Fills the header.
  bool describe(const FlowEnds& ends, std::span<std::uint8_t> octets, std::string& text);

  /// True for a SIP start line (RFC 3261) at `payload`, of which 20 bytes are readable; the item is SIP from then on.
  bool isSip(const u_char* payload);

  /// True when the destination in the header is listed; the item is RTP from then on.
  bool isRtpFilter();

  /// The header of the item that was classified last.
  FrameHeader& header() { return header_; }
  FlowEnds ends() const { return {header_.srcIp, header_.dstIp, header_.srcPort, header_.dstPort}; }

  /// The class of the item forwarded last; heartbeat replies take its way. Any thread.
  FrameProtocol lastClass() const { return lastClass_; }

 private:
  void setEnds(const FlowEnds& ends);
  bool isSipWithAnyUri(std::span<const std::uint8_t> payload);

  const RtpDestinations& destinations_;
  bool sipAnyUri_ = false;
  SipHelper sipHelper_;
  H323Parser h323Parser_;
  FrameHeader header_;
  std::atomic<FrameProtocol> lastClass_ = FrameProtocol::None;
};

// ---- inline: each datagram goes through these ----

inline void Classifier::setEnds(const FlowEnds& ends) {
  header_.dstIp = ends.destination;
  header_.dstPort = ends.destinationPort;
  header_.srcIp = ends.source;
  header_.srcPort = ends.sourcePort;
}

inline FrameProtocol Classifier::classify(const Datagram& datagram) {
  setEnds(datagram.ends);
  header_.len = static_cast<u_short>(datagram.payload.size() + FrameHeader::kLength);
  const bool isWanted = isSip(datagram.payload.data()) || isSipWithAnyUri(datagram.payload) || isRtpFilter();
  return header_.protocol = isWanted ? lastClass_.load(std::memory_order_relaxed) : FrameProtocol::None;
}

inline bool Classifier::isSip(const u_char* payload) {
  if (!sipHelper_.isRequest(payload) && !sipHelper_.isResponse(payload)) return false;
  lastClass_ = FrameProtocol::Sip;
  return true;
}

inline bool Classifier::isRtpFilter() {
  if (!destinations_.contains({header_.dstIp, header_.dstPort})) return false;
  lastClass_ = FrameProtocol::Rtp;
  return true;
}

}  // namespace voip
