#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "network/LinkLayer.h"

namespace voip {

/// An IPv4 packet inside captured bytes.
struct InnerPacket {
  std::size_t offset = 0;  ///< of its IP header
  std::size_t length =
      0;           ///< of header and payload, by the IP header and what was captured; no trailer of an outer frame
  int layers = 0;  ///< that were taken off to get there
  bool tunnelled = false;  ///< one of them was more than a VLAN tag
};

/// Finds the packet inside VLAN tags (IEEE 802.1Q, 802.1ad), MPLS (RFC 3032), PPPoE (RFC 2516), IP in IP (RFC 2003),
/// GRE (RFC 2784, 2890), ERSPAN types I to III, VXLAN (RFC 7348) and GENEVE (RFC 8926), over IPv4 or IPv6, stacked in
/// any order. Keeps nothing and reads nothing outside the bytes it is given.
class Decapsulator {
 public:
  static constexpr int kMaxLayers = 8;  ///< a run of tags or labels counts as one

  /// The innermost IPv4 packet that makes sense. What looks like a tunnel and holds none is left as it is; so is a
  /// fragment. `from` says where in `bytes` to begin and with what; `layers` have been taken off already.
  static std::optional<InnerPacket> unwrap(std::span<const std::uint8_t> bytes, const LinkHeader& from, int layers = 0);
};

}  // namespace voip
