#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

/// The fields of an IPv4 header (RFC 791) that matter here. Addresses in host order, first octet most significant.
struct Ipv4Header {
  std::size_t length = 0;  ///< of the header, options included
  std::size_t total = 0;   ///< of the packet, as far as it was captured; what is behind it is padding or a trailer
  bool cut = false;        ///< the packet was longer than what was captured of it
  std::uint16_t id = 0;
  std::size_t fragmentOffset = 0;  ///< in bytes
  bool moreFragments = false;
  std::uint8_t protocol = 0;
  std::uint32_t source = 0;
  std::uint32_t destination = 0;

  bool isFragment() const { return moreFragments || fragmentOffset > 0; }

  /// Nothing when no IPv4 header that makes sense begins at the first of the bytes.
  static std::optional<Ipv4Header> read(std::span<const std::uint8_t> bytes);
};
