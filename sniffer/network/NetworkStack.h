#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "network/Decapsulator.h"
#include "network/DuplicateFilter.h"
#include "network/FragmentReassembler.h"
#include "network/NetworkOptions.h"
#include "network/NetworkSink.h"
#include "network/TcpStreams.h"

namespace voip {

/// Where a frame was captured. The zone (RFC 4007) is the number of the device, or 0 for all devices. IPv6 addresses
/// that are link-local belong to different hosts when the zones differ.
struct FrameSource {
  FrameSource(int type, std::uint16_t number = 0) : linkType(type), zone(number) {}

  std::int32_t linkType;  ///< a DLT_ value of libpcap
  std::uint16_t zone;
};

/// Turns captured frames into the datagrams and messages that were sent: removes the link layer and tunnels, drops
/// duplicates, reassembles fragments and TCP streams, in this order. Each stage after the link layer needs its option.
/// Without options an Ethernet frame takes the plain path: at most two VLAN tags, IPv4, UDP or TCP. IPv6 packets take
/// the same stages, if the options include them, but their lengths are never ignored.
///
/// Each frame is either passed to the sink (as a datagram, as a segment or as refused) or counted: as an unwanted
/// packet, a duplicate, a held fragment (each fragment except the one that completes its datagram), or a segment of a
/// followed stream. Messages of streams are passed on in addition. A frame costs a limited work: what remains of it is
/// done with the next ones. One thread.
class NetworkStack {
 public:
  /// The sink must outlive the stack.
  NetworkStack(const NetworkOptions& options, NetworkSink& sink, const NetworkLimits& limits = {});

  /// Takes a captured frame and calls the sink for each item. The frame may be written to and is followed by
  /// kFrameSlack zeroed bytes. `captured` is its capture time; `now` never decreases, even when capture times do (see
  /// ForwardClock); both in microseconds.
  void takeFrame(std::span<std::uint8_t> frame, FrameSource source, std::int64_t captured, std::int64_t now);

  /// Takes an Ethernet frame on the plain path, regardless of the options.
  void takePlainFrame(std::span<std::uint8_t> frame);

  /// Does a limited part of the work that is due while no frame arrives: passes on what frames have left, gives up gaps
  /// in streams and drops old fragments. Calls the sink. Returns true when there is more to do for streams.
  bool expire(std::int64_t now);

  /// Does a limited part of the work at the end, when no frame will follow: passes on what frames have left, gives up
  /// all gaps in streams and forgets the streams. Calls the sink. Returns true when there is more to do.
  [[nodiscard]] bool flush();

 private:
  struct Bytes {
    std::span<std::uint8_t> bytes;
    bool areCaptured;  ///< not reassembled
  };

  struct Arrival {
    std::int64_t captured, now;
    std::uint16_t zone;
  };

  [[gnu::noinline]] void takeByStages(std::span<std::uint8_t> frame, FrameSource source, std::int64_t captured,
                                      std::int64_t now);
  [[gnu::noinline]] void takePlainIpv6Frame(std::span<std::uint8_t> frame, const Arrival& arrival);
  void takePacket(const Bytes& from, const InnerPacket& packet, const Arrival& arrival);
  void takeIpv6Packet(const Bytes& from, const InnerPacket& packet, const Arrival& arrival);
  template <class Header>
  void takeFragment(const Header& header, Octets bytes, const InnerPacket& packet, const Arrival& arrival);
  template <class Header>
  bool takeSegment(const Header& header, Octets bytes, const Arrival& arrival);
  void takeAsItIs(const Bytes& from, const InnerPacket& packet);
  void takeAsItIs(const Bytes& from, const InnerPacket& packet, const Ipv6Header& header);
  void refuseIpv6(NetworkCount why);

  NetworkSink& sink_;
  const NetworkOptions options_;
  const bool isPlain_;  ///< no option is on, except that for IPv6
  const Decapsulator decapsulator_;
  std::optional<DuplicateFilter> duplicates_;
  std::optional<FragmentReassembler> fragments_;
  std::optional<TcpStreams> streams_;
};

}  // namespace voip
