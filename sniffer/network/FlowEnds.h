#pragma once

#include <cstdint>

namespace voip {

/// The two ends of a datagram or of one direction of a TCP stream. Addresses (IPv4) and ports in host order.
struct FlowEnds {
  std::uint32_t source = 0, destination = 0;
  std::uint16_t sourcePort = 0, destinationPort = 0;
  bool operator==(const FlowEnds&) const = default;

  /// The other direction.
  FlowEnds reversed() const { return {destination, source, destinationPort, sourcePort}; }
};

}  // namespace voip
