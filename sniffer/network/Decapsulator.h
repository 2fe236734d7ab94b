#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "network/LinkLayer.h"
#include "network/NetworkOptions.h"
#include "network/Octets.h"

namespace voip {

/// An IP packet inside captured bytes.
struct InnerPacket {
  std::size_t offset = 0;    ///< of its IP header
  std::size_t length = 0;    ///< of header and payload as far as captured, without the trailer of an outer frame
  int layers = 0;            ///< outer layers
  bool isTunnelled = false;  ///< a layer other than VLAN tags is present
  bool isIpv6 = false;
};

/// Finds the packet inside VLAN tags (IEEE 802.1Q, 802.1ad), MPLS (RFC 3032), Ethernet pseudowires (RFC 4448), PPPoE
/// (RFC 2516), IP in IP (RFC 2003, 2473, 4213), GRE (RFC 2784, 2890), PPP in GRE (RFC 2637), ERSPAN types I to III,
/// VXLAN (RFC 7348), GENEVE (RFC 8926), GTP-U (3GPP TS 29.281), L2TP version 2 (RFC 2661) and TZSP, over IPv4 or IPv6,
/// stacked in any order. Reads only the bytes it is given. Any thread.
///
/// A UDP port does not prove a tunnel. So a datagram is GTP-U, L2TP or PPP only when the IP packet in it is valid,
/// with its lengths and the checksum of an IPv4 header.
class Decapsulator {
 public:
  static constexpr int kMaxLayers = 8;  ///< a run of tags or labels counts as one

  /// Finds IPv6 packets if the options include them. `options` must outlive the object.
  explicit Decapsulator(const NetworkOptions& options) : options_(options) {}

  /// Returns the innermost valid IP packet. A packet that looks like a tunnel but contains no such packet is returned
  /// itself, and so is a fragment. `from` is the link-layer header in `bytes`; `layers` is the number of layers removed
  /// before.
  std::optional<InnerPacket> unwrap(Octets bytes, const LinkHeader& from, int layers = 0) const;

 private:
  const NetworkOptions& options_;
};

}  // namespace voip
