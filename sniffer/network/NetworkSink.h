#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// The two ends of a TCP connection as one direction of it has them. Addresses and ports in host order.
struct StreamEnds {
  std::uint32_t source = 0, destination = 0;
  std::uint16_t sourcePort = 0, destinationPort = 0;
  bool operator==(const StreamEnds&) const = default;
};

/// Takes what the network carried, each item complete. What it is given is valid during the call only, but for a frame
/// that was captured.
class NetworkSink {
 public:
  virtual ~NetworkSink() = default;

  /// A packet whose IPv4 header stands at `ipOffset` in `frame`, which may be beyond its end. What is behind the packet
  /// in the frame belongs to it. The frame may be written to; at least 192 zeroed bytes follow it.
  /// `isCaptured`: it is the frame that was given to the network stack, not a datagram put together.
  virtual void takePacket(std::span<std::uint8_t> frame, std::size_t ipOffset, bool isCaptured) = 0;

  /// A SIP message of a TCP stream (RFC 3261 18.3), short enough for one frame to the recorder.
  virtual void takeSipMessage(const StreamEnds& ends, std::span<const std::uint8_t> message) = 0;

  /// A TPKT of a TCP stream (RFC 1006), its header included.
  virtual void takeTpkt(const StreamEnds& ends, std::span<const std::uint8_t> tpkt) = 0;
};
