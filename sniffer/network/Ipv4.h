#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace voip {

/// The fields of an IPv4 header (RFC 791) that the network stack uses. Addresses in host order, first octet most
/// significant.
struct Ipv4Header {
  std::size_t length = 0;   ///< of the header, options included
  std::size_t total = 0;    ///< of the packet, as far as it was captured; padding or a trailer follows
  std::size_t missing = 0;  ///< bytes of the packet after these, not captured
  std::uint16_t id = 0;
  std::size_t fragmentOffset = 0;  ///< in bytes
  bool moreFragments = false;
  std::uint8_t protocol = 0;
  std::uint32_t source = 0;
  std::uint32_t destination = 0;
  static constexpr std::uint16_t zone = 0;  ///< as in Ipv6Header

  bool isFragment() const { return moreFragments || fragmentOffset > 0; }

  /// Returns nothing when the bytes do not begin with a valid IPv4 header.
  static std::optional<Ipv4Header> read(std::span<const std::uint8_t> bytes);
};

// Several stages read a header for each frame, so its length is checked once and not for each field.
inline std::optional<Ipv4Header> Ipv4Header::read(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kShortest = 20;
  if (bytes.size() < kShortest) return {};
  const auto u16 = [&](std::size_t at) { return static_cast<unsigned>(bytes[at] << 8 | bytes[at + 1]); };
  const auto u32 = [&](std::size_t at) { return u16(at) << 16 | u16(at + 2); };
  Ipv4Header header;
  header.length = (bytes[0] & 0x0F) * std::size_t{4};
  if (bytes[0] >> 4 != 4 || header.length < kShortest || header.length > bytes.size()) return {};
  const std::size_t total = u16(2);
  // A packet that the network card has not segmented yet may have the length 0.
  header.total = total == 0 ? bytes.size() : std::min(total, bytes.size());
  if (header.total < header.length) return {};
  header.missing = std::max(total, bytes.size()) - bytes.size();
  header.id = static_cast<std::uint16_t>(u16(4));
  header.moreFragments = (u16(6) & 0x2000) != 0;
  header.fragmentOffset = (u16(6) & 0x1FFF) * std::size_t{8};
  header.protocol = bytes[9];
  header.source = u32(12);
  header.destination = u32(16);
  return header;
}

}  // namespace voip
