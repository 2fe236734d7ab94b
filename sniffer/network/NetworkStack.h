#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "network/Decapsulator.h"
#include "network/DuplicateFilter.h"
#include "network/FragmentReassembler.h"
#include "network/NetworkSink.h"
#include "network/TcpStreams.h"

namespace voip {

/// What the network stack does beyond the plain way.
struct NetworkOptions {
  bool decapsulate = false;
  bool dropDuplicates = false;
  bool reassembleFragments = false;
  bool reassembleTcp = false;
};

/// From a captured frame to what a telephone sent: takes off the link layer and tunnels, drops what was seen a moment
/// ago, puts fragments and TCP streams together, each as far as the options ask for it, in this order. Without options
/// an Ethernet frame takes the plain way: at most two VLAN tags, IPv4, UDP or TCP.
///
/// Each frame is given to the sink as a datagram, a segment or refused, or is counted: as an unwanted packet, a
/// duplicate, a fragment that is held (each but the one that completes its datagram), or a segment of a stream that is
/// followed. Messages of streams come in addition. One thread.
class NetworkStack {
 public:
  /// The sink must live as long.
  NetworkStack(const NetworkOptions& options, NetworkSink& sink);

  /// `frame` is a captured frame of the link type (a DLT_ value of libpcap) that may be written to and is followed by
  /// kFrameSlack zeroed bytes. `time` is its capture time in microseconds. Calls the sink for each item.
  void takeFrame(std::span<std::uint8_t> frame, int linkType, std::int64_t time);

  /// Takes an Ethernet frame the plain way, whatever the options are.
  void takePlainFrame(std::span<std::uint8_t> frame);

 private:
  struct Bytes {
    std::span<std::uint8_t> bytes;
    bool areCaptured;  ///< not put together
  };

  void takePacket(const Bytes& from, const InnerPacket& packet, std::int64_t time);
  void takeFragment(const Ipv4Header& header, std::span<const std::uint8_t> bytes, int layers, std::int64_t time);
  bool takeSegment(const Ipv4Header& header, std::span<const std::uint8_t> bytes, std::int64_t time);
  void takeAsItIs(const Bytes& from, const InnerPacket& packet);

  NetworkSink& sink_;
  const NetworkOptions options_;
  const bool isPlain_;  ///< no option is on
  std::optional<DuplicateFilter> duplicates_;
  std::optional<FragmentReassembler> fragments_;
  std::optional<TcpStreams> streams_;
};

}  // namespace voip
