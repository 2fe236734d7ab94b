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

/// The way from a captured frame to what a telephone sent: removes the link layer and tunnels, drops duplicates,
/// reassembles fragments and TCP streams, each if its option is on, in this order. Without options an Ethernet frame
/// takes the plain way: at most two VLAN tags, IPv4, UDP or TCP.
///
/// Each frame is passed to the sink as a datagram, as a segment or refused, or it is counted: as an unwanted packet, a
/// duplicate, a fragment that is held (each but the one that makes its datagram whole), or a segment of a stream that
/// is followed. Messages of streams come in addition. One thread.
class NetworkStack {
 public:
  /// The sink must outlive the stack.
  NetworkStack(const NetworkOptions& options, NetworkSink& sink, const NetworkLimits& limits = {});

  /// Takes a captured frame of a link type (a DLT_ value of libpcap) and calls the sink for each item. The frame may be
  /// written to and is followed by kFrameSlack zeroed bytes. `captured` is its capture time; `now` only goes forward,
  /// whatever the capture times do (see ForwardClock); both in microseconds.
  void takeFrame(std::span<std::uint8_t> frame, int linkType, std::int64_t captured, std::int64_t now);

  /// Takes an Ethernet frame the plain way, whatever the options are.
  void takePlainFrame(std::span<std::uint8_t> frame);

  /// Does what is due at this time while no frame comes: gives up gaps in streams and old fragments. Calls the sink.
  void expire(std::int64_t now);

  /// Gives up all gaps in streams and forgets the streams: no frame will come. Calls the sink.
  void flush();

 private:
  struct Bytes {
    std::span<std::uint8_t> bytes;
    bool areCaptured;  ///< not reassembled
  };

  struct Times {
    std::int64_t captured, now;
  };

  void takePacket(const Bytes& from, const InnerPacket& packet, const Times& times);
  void takeFragment(const Ipv4Header& header, Octets bytes, const InnerPacket& packet, const Times& times);
  bool takeSegment(const Ipv4Header& header, Octets bytes, const Times& times);
  void takeAsItIs(const Bytes& from, const InnerPacket& packet);

  NetworkSink& sink_;
  const NetworkOptions options_;
  const bool isPlain_;  ///< no option is on
  std::optional<DuplicateFilter> duplicates_;
  std::optional<FragmentReassembler> fragments_;
  std::optional<TcpStreams> streams_;
};

}  // namespace voip
