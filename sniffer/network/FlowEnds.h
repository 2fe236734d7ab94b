#pragma once

#include <cstdint>

#include "base/IpAddress.h"

namespace voip {

/// The two ends of a datagram or of one direction of a TCP stream. Both addresses have the same family. Ports in host
/// order.
struct FlowEnds {
  IpAddress source, destination;
  std::uint16_t sourcePort = 0, destinationPort = 0;
  std::uint16_t zone = 0;  ///< of link-local addresses; see FrameSource
  bool operator==(const FlowEnds&) const = default;

  bool areIpv4() const { return destination.isIpv4(); }

  /// The other direction.
  FlowEnds reversed() const { return {destination, source, destinationPort, sourcePort, zone}; }
};

}  // namespace voip
