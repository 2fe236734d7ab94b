#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "network/LinkLayer.h"
#include "network/Octets.h"

namespace voip {

/// An IPv4 packet inside captured bytes.
struct InnerPacket {
  std::size_t offset = 0;    ///< of its IP header
  std::size_t length = 0;    ///< of header and payload as far as captured, without the trailer of an outer frame
  int layers = 0;            ///< outer layers
  bool isTunnelled = false;  ///< a layer other than VLAN tags is present
};

/// Finds the packet inside VLAN tags (IEEE 802.1Q, 802.1ad), MPLS (RFC 3032), Ethernet pseudowires (RFC 4448), PPPoE
/// (RFC 2516), IP in IP (RFC 2003), GRE (RFC 2784, 2890), ERSPAN types I to III, VXLAN (RFC 7348) and GENEVE (RFC
/// 8926), over IPv4 or IPv6, stacked in any order. Stateless; reads only the bytes it is given. Any thread.
class Decapsulator {
 public:
  static constexpr int kMaxLayers = 8;  ///< a run of tags or labels counts as one

  /// Returns the innermost valid IPv4 packet. A packet that looks like a tunnel but contains no IPv4 packet is returned
  /// itself, and so is a fragment. `from` is the link-layer header in `bytes`; `layers` is the number of layers removed
  /// before.
  static std::optional<InnerPacket> unwrap(Octets bytes, const LinkHeader& from, int layers = 0);
};

}  // namespace voip
