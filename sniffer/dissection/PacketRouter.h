#pragma once

#include <pcap/pcap.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "dissection/Classifier.h"
#include "forwarding/FrameForwarder.h"
#include "forwarding/LookBack.h"
#include "forwarding/Recalls.h"
#include "forwarding/RecorderLinks.h"
#include "forwarding/RtpDestinations.h"
#include "network/ForwardClock.h"
#include "network/NetworkStack.h"
#include "queue/CaptureStamp.h"
#include "settings/Settings.h"
#include "statistics/Statistics.h"

namespace voip {

/// The road of a captured frame: through the network stack and the classifier to the forwarder, to the look-back, or
/// nowhere. Frames to the recorder wait in the forwarder until its flush(). Consumer only.
class PacketRouter final : private NetworkSink {
 public:
  PacketRouter(RtpDestinations& destinations, Recalls& recalls, RecorderLinks& links, FrameForwarder& forwarder,
               Statistics& statistics);

  /// `lookBack` may be null.
  void configure(const Settings& settings, LookBack* lookBack);

  Classifier& classifier() { return classifier_; }

  /// Takes one captured frame of a link type (libpcap's DLT_ value). The frame is written to; kFrameSlack zeroed bytes
  /// follow it.
  void takeFrame(const pcap_pkthdr& header, u_char* frame, int linkType, const CaptureStamp& stamp);

  /// Does what is due in the network stack while no frame comes: early segments may be forwarded.
  void expire();

  /// Forwards what the network stack still has: no frame will come.
  void flush() { network_->flush(); }

  /// Takes an Ethernet frame the plain way, whatever the settings are.
  void takePlainFrame(std::span<u_char> frame) { network_->takePlainFrame(frame); }

  // Steps of the plain way, for a header at `offset` of a packet with the addresses of the item classified last.
  void takePlainUdp(std::span<u_char> frame, std::size_t offset);
  void takePlainTcp(std::span<u_char> frame, std::size_t offset);

  /// Writes the header of the item classified last over the first bytes of `frame` and hands the frame on.
  void forward(std::span<u_char> frame);

  /// Forwards the description of a segment or TPKT, if there is one.
  void forwardDescription(const FlowEnds& ends, std::span<u_char> octets);

  /// Forwards the kept media of the destinations that were asked for.
  void forwardRecalled();

 private:
  void takeDatagram(const Datagram& datagram) override;
  void takeSegment(const Segment& segment) override;
  void takeSipMessage(const FlowEnds& ends, Octets message, std::int64_t captured) override;
  void takeTpkt(const FlowEnds& ends, Octets tpkt, std::int64_t captured) override;
  void refuseMessage(const FlowEnds& ends, std::uint64_t length) override;
  void refuseTail(const FlowEnds& ends, std::size_t missing) override;
  void refuseHeader(const sniff_ip& ip) override;
  void refuseProtocol(const sniff_ip& ip) override;
  void refuseTcpHeader(int length) override;
  void count(NetworkCount what) override;

  void drop(const Datagram& datagram);
  void forwardMade();
  CaptureStamp stampAt(std::int64_t captured) const;

  RtpDestinations& destinations_;
  Recalls& recalls_;
  RecorderLinks& links_;
  FrameForwarder& forwarder_;
  Statistics& statistics_;
  LookBack* lookBack_ = nullptr;
  Classifier classifier_;
  std::unique_ptr<NetworkStack> network_;
  bool isPlain_ = true;  ///< the network stack takes no notice of time
  ForwardClock clock_;   ///< of the network stack
  bool hasLoggedTail_ = false;
  CaptureStamp stamp_;        ///< of the frame in work
  std::string description_;   ///< reused
  std::vector<u_char> made_;  ///< the frame that is no part of a captured one, reused
};

}  // namespace voip
