#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "network/EtherType.h"

namespace voip {

/// Where a frame's link-layer header ends, and the type of what follows it.
struct LinkHeader {
  std::size_t length = 0;       ///< may be beyond the end of a frame that is too short
  std::uint16_t etherType = 0;  ///< 0 when the frame ends before it
};

/// Returns true for the link types whose frames are understood: Ethernet, Linux cooked version 1 and 2 (the device
/// `any`), raw IP and BSD loopback. `linkType` is a DLT_ value of libpcap, as pcap_datalink() returns it.
bool understandsLinkType(int linkType);

/// Reads a frame's link-layer header without VLAN tags. A link type that is not understood is read as Ethernet.
LinkHeader readLinkHeader(int linkType, std::span<const std::uint8_t> frame);

/// Returns the offset of the IP header the plain way: one tag after EtherType 0x8100, two after 0x88A8. All other types
/// are taken for IP.
inline std::size_t plainNetworkOffset(const LinkHeader& link) {
  constexpr std::size_t kTagLength = 4;
  if (link.etherType == kEtherVlan) return link.length + kTagLength;
  if (link.etherType == kEtherServiceVlan) return link.length + 2 * kTagLength;
  return link.length;
}

}  // namespace voip
