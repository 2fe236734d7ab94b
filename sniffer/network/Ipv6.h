#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "base/IpAddress.h"
#include "network/Octets.h"

namespace voip {

/// The fields of an IPv6 header (RFC 8200) and its extension headers that the network stack uses.
struct Ipv6Header {
  static constexpr std::size_t kFixed = 40;  ///< length without extension headers
  static constexpr int kMostExtensions = 16;

  std::size_t length = 0;     ///< up to the payload of `protocol`: extension headers and a fragment header included
  std::size_t total = 0;      ///< of the packet, as far as it was captured; padding or a trailer follows
  std::size_t missing = 0;    ///< bytes of the packet after these, not captured
  std::uint8_t protocol = 0;  ///< the first header that is no extension header; of a fragment, the header after it
  bool isJumbo = false;       ///< a jumbo payload (RFC 2675); the other lengths are unknown
  std::uint32_t id = 0;       ///< of a fragment
  std::size_t fragmentOffset = 0;  ///< in bytes
  bool moreFragments = false;
  IpAddress source, destination;
  std::uint16_t zone = 0;  ///< of link-local addresses, set by the reader's caller; see FrameSource

  bool isLinkLocal() const { return source.isLinkLocal() || destination.isLinkLocal(); }

  /// False for an atomic fragment (RFC 6946), which is a whole packet with a fragment header.
  bool isFragment() const { return moreFragments || fragmentOffset > 0; }

  /// Returns nothing when the bytes do not begin with a valid IPv6 header, or when its extension headers are more than
  /// kMostExtensions or go beyond the captured packet. An address that IpAddress::read() takes for IPv4 makes a header
  /// invalid: such a packet would pass for an IPv4 packet.
  static std::optional<Ipv6Header> read(Octets bytes);
};

}  // namespace voip
