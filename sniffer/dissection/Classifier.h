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

/// Decides whether the recorder wants an item of the network stack (a datagram, segment or message), and fills the
/// header of its frame. The classifying thread only, except lastClass().
class Classifier {
 public:
  /// Both arguments must outlive the object.
  Classifier(const RtpDestinations& destinations, Statistics& statistics)
      : destinations_(destinations), h323Parser_(&statistics) {}

  /// Sets whether SIP requests to URIs other than sip: are SIP, too. To be called before the first item.
  void setSipAnyUri(bool on) { sipAnyUri_ = on; }

  /// Returns the value of setSipAnyUri().
  bool takesAnyUri() const { return sipAnyUri_; }

  /// Returns the parser of H.323 signalling, which this object owns.
  H323Parser& h323Parser() { return h323Parser_; }

  /// Returns the class of a datagram: SIP by its start line, RTP by its destination, else None. kFrameSlack readable
  /// bytes must follow the payload. Fills the header.
  FrameProtocol classify(const Datagram& datagram);

  /// Fills the header for an item of a known class. `payloadLength` in bytes.
  void setClass(FrameProtocol protocol, const FlowEnds& ends, std::size_t payloadLength);

  /// Sets `text` to the description of one H.323 segment or TPKT between `ends`, without its last character. `octets`
  /// are only read. Returns false when there is nothing to forward. Fills the header.
  bool describe(const FlowEnds& ends, std::span<std::uint8_t> octets, std::string& text);

  /// Returns true when a SIP start line (RFC 3261) is at `payload`, and makes SIP the last class. 20 bytes must be
  /// readable.
  bool isSip(const std::uint8_t* payload);

  /// Returns true when the destination in the header is on the list, and makes RTP the last class.
  bool isRtpFilter();

  /// Returns the recorders that want the last item of class RTP, as RtpDestinations::wantedBy().
  std::uint32_t wantedBy() const { return wantedBy_; }

  /// Returns the header of the item that was classified last. This object owns the header.
  FrameHeader& header() { return header_; }

  /// Returns the addresses and ports in that header, in host order.
  FlowEnds ends() const { return {header_.srcIp, header_.dstIp, header_.srcPort, header_.dstPort}; }

  /// Returns the class of the last item that had one. Heartbeat replies use the connection of this class. Any thread.
  FrameProtocol lastClass() const { return lastClass_; }

 private:
  void setEnds(const FlowEnds& ends);
  bool isSipWithAnyUri(std::span<const std::uint8_t> payload);

  const RtpDestinations& destinations_;
  bool sipAnyUri_ = false;
  SipHelper sipHelper_;
  H323Parser h323Parser_;
  FrameHeader header_;
  std::uint32_t wantedBy_ = 0;
  std::atomic<FrameProtocol> lastClass_ = FrameProtocol::None;
};

// ---- inline, since each datagram needs them ----

inline void Classifier::setEnds(const FlowEnds& ends) {
  header_.dstIp = ends.destination;
  header_.dstPort = ends.destinationPort;
  header_.srcIp = ends.source;
  header_.srcPort = ends.sourcePort;
}

inline FrameProtocol Classifier::classify(const Datagram& datagram) {
  setEnds(datagram.ends);
  header_.len = static_cast<u_short>(datagram.payload.size() + header_.length());
  const bool isWanted =
      isSip(datagram.payload.data()) || (sipAnyUri_ && isSipWithAnyUri(datagram.payload)) || isRtpFilter();
  return header_.protocol = isWanted ? lastClass_.load(std::memory_order_relaxed) : FrameProtocol::None;
}

inline bool Classifier::isSip(const std::uint8_t* payload) {
  if (!sipHelper_.isRequest(payload) && !sipHelper_.isResponse(payload)) return false;
  lastClass_.store(FrameProtocol::Sip, std::memory_order_relaxed);
  return true;
}

inline bool Classifier::isRtpFilter() {
  wantedBy_ = destinations_.wantedBy({header_.dstIp, header_.dstPort});
  if (wantedBy_ == 0) return false;
  lastClass_.store(FrameProtocol::Rtp, std::memory_order_relaxed);
  return true;
}

}  // namespace voip
