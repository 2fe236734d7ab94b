#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "network/EtherType.h"

namespace voip {

/// The length of a frame's link-layer header, and the type of its payload.
struct LinkHeader {
  std::size_t length = 0;       ///< may be beyond the end of a frame that is too short
  std::uint16_t etherType = 0;  ///< 0 when the frame ends before it
};

/// Returns true for the supported link types: Ethernet, Linux cooked version 1 and 2 (the device `any`), raw IP and BSD
/// loopback; with `decapsulate` also PPP, with or without HDLC-like framing (RFC 1661, 1662), and PPPoE (RFC 2516).
/// `linkType` is a DLT_ value of libpcap, as pcap_datalink() returns it.
bool understandsLinkType(int linkType, bool decapsulate = false);

/// Returns the type of the payload of a PPP packet of this protocol; 0 for a protocol that is not supported.
std::uint16_t etherTypeOfPpp(unsigned protocol);

/// Reads a frame's link-layer header without VLAN tags. An unsupported link type is read as Ethernet.
LinkHeader readLinkHeader(int linkType, std::span<const std::uint8_t> frame);

/// Returns the offset of the IP header on the plain path: assumes one tag after EtherType 0x8100 and two after 0x88A8,
/// and IP after all other types.
inline std::size_t plainNetworkOffset(const LinkHeader& link) {
  constexpr std::size_t kTagLength = 4;
  if (link.etherType == kEtherVlan) return link.length + kTagLength;
  if (link.etherType == kEtherServiceVlan) return link.length + 2 * kTagLength;
  return link.length;
}

/// Returns true when the type of the payload at plainNetworkOffset() is IPv6.
inline bool isPlainIpv6(const LinkHeader& link, std::span<const std::uint8_t> frame) {
  const std::size_t offset = plainNetworkOffset(link);
  if (offset == link.length) return link.etherType == kEtherIpv6;
  return offset <= frame.size() && (frame[offset - 2] << 8 | frame[offset - 1]) == kEtherIpv6;  // after the tags
}

}  // namespace voip
