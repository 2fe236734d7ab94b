#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "network/EtherType.h"

namespace voip {

/// Where a frame's link-layer header ends, and what it says comes behind it.
struct LinkHeader {
  std::size_t length = 0;       ///< may be beyond the end of a frame that is too short
  std::uint16_t etherType = 0;  ///< 0 when the frame ends before it
};

/// True for the link types whose frames are understood: Ethernet, Linux cooked version 1 and 2 (the device `any`), raw
/// IP and BSD loopback. `linkType` is a DLT_ value of libpcap, as pcap_datalink() answers it.
bool understandsLinkType(int linkType);

/// Reads a frame's link-layer header without VLAN tags. A link type that is not understood is read as Ethernet.
LinkHeader readLinkHeader(int linkType, std::span<const std::uint8_t> frame);

/// Where the IP header stands when no more is taken off than what every frame may have: one tag after EtherType 0x8100,
/// two after 0x88A8. Whatever else the link layer announces is taken for IP.
inline std::size_t plainNetworkOffset(const LinkHeader& link) {
  constexpr std::size_t kTagLength = 4;
  if (link.etherType == kEtherVlan) return link.length + kTagLength;
  if (link.etherType == kEtherServiceVlan) return link.length + 2 * kTagLength;
  return link.length;
}

}  // namespace voip
