#pragma once

#include <pcap/pcap.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "base/CaptureStamp.h"
#include "dissection/Classifier.h"
#include "forwarding/FanOut.h"
#include "forwarding/RecorderLane.h"
#include "forwarding/RtpDestinations.h"
#include "network/ForwardClock.h"
#include "network/NetworkStack.h"
#include "settings/Settings.h"
#include "statistics/Statistics.h"

namespace voip {

/// Routes captured frames from the network stack through the classifier to the lane of the recorder, or of each
/// recorder. Counts the frames that it drops. Frames wait in the lanes until flush(). The classifying thread only: the
/// consumer, unless there are several recorders.
class PacketRouter final : private NetworkSink {
 public:
  /// All arguments must outlive the object.
  PacketRouter(const RtpDestinations& destinations, RecorderLane& lane, Statistics& statistics);

  /// Applies the settings and discards the state of the network stack. `fanOut` takes the frames instead of the lane
  /// when there are several recorders, else it is null; the caller owns it.
  void configure(const Settings& settings, FanOut* fanOut);

  /// Returns the classifier, which this object owns.
  Classifier& classifier() { return classifier_; }

  /// Takes one captured frame of `header.len` bytes. Writes to the frame. kFrameSlack zeroed bytes must follow it. It
  /// must stay valid until flush().
  void takeFrame(const pcap_pkthdr& header, u_char* frame, FrameSource source, const CaptureStamp& stamp);

  /// Does a limited part of the work that is due in the network stack while no frame arrives: messages that frames have
  /// left and early segments may be forwarded. Returns true when there is more to do.
  bool expire();

  /// Forwards the messages that the network stack still holds. To be called when no frame will follow.
  void finish();

  /// Sends the frames that wait in the lane, or wakes the lanes of several recorders.
  void flush() {
    if (ipv6Items_ > 0) addIpv6Items();
    fanOut_ != nullptr ? fanOut_->publish() : static_cast<void>(lane_.flush());
  }

  /// As takeFrame(), but takes an Ethernet frame on the plain path, regardless of the settings.
  void takePlainFrame(std::span<u_char> frame) { network_->takePlainFrame(frame); }

  // Single steps of the plain path. `offset` is the index of the UDP or TCP header in `frame`. The addresses are those
  // of the item that was classified last.
  void takePlainUdp(std::span<u_char> frame, std::size_t offset);
  void takePlainTcp(std::span<u_char> frame, std::size_t offset);

  /// Writes the header of the item that was classified last over the beginning of `frame` and passes the frame to the
  /// lane or lanes.
  void forward(std::span<u_char> frame);

  /// Forwards the description of a segment or TPKT, if it has one, and counts it as dropped if not. Returns whether it
  /// has one.
  bool forwardDescription(const FlowEnds& ends, std::span<u_char> octets);

 private:
  void takeDatagram(const Datagram& datagram) override;
  void takeSegment(const Segment& segment) override;
  void takeSipMessage(const FlowEnds& ends, Octets message, std::int64_t captured) override;
  std::size_t takeTpkt(const FlowEnds& ends, Octets tpkt, std::int64_t captured) override;
  void refuseMessage(const FlowEnds& ends, std::uint64_t length) override;
  void refuseTail(const FlowEnds& ends, std::size_t missing) override;
  void refuseHeader(const sniff_ip& ip) override;
  void refuseProtocol(const sniff_ip& ip) override;
  void refuseTcpHeader(int length) override;
  void count(NetworkCount what) override;

  void countIpv6(const FlowEnds& ends);
  void addIpv6Items();
  void drop(const Datagram& datagram);
  void make(const FlowEnds& ends, Octets payload);
  void forwardMade();
  void release();
  bool sendEarlier();
  CaptureStamp stampAt(std::int64_t captured) const;

  RecorderLane& lane_;
  FanOut* fanOut_ = nullptr;
  Statistics& statistics_;
  bool keepsMedia_ = false;  ///< there is a look-back
  Classifier classifier_;
  std::unique_ptr<NetworkStack> network_;
  bool isPlain_ = true;  ///< no option that needs a clock is on
  ForwardClock clock_;   ///< of the network stack
  bool hasLoggedTail_ = false;
  std::uint64_t ipv6Items_ = 0;  ///< since the last flush()
  CaptureStamp stamp_;           ///< of the current frame
  std::string description_;      ///< the current H.323 description; reused
  std::vector<u_char> made_;     ///< a frame that is no part of a captured frame; reused
};

}  // namespace voip
