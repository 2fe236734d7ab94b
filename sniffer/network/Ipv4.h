#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "network/ByteReader.h"

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

  bool isFragment() const { return moreFragments || fragmentOffset > 0; }

  /// Returns nothing when the bytes do not begin with a valid IPv4 header.
  static std::optional<Ipv4Header> read(std::span<const std::uint8_t> bytes);
};

inline std::optional<Ipv4Header> Ipv4Header::read(std::span<const std::uint8_t> bytes) {
  ByteReader reader(bytes);
  Ipv4Header header;
  const unsigned versionAndLength = reader.u8();
  header.length = (versionAndLength & 0x0F) * 4;
  reader.skip(1);
  const std::size_t total = reader.u16();
  header.id = reader.u16();
  const unsigned fragment = reader.u16();
  header.moreFragments = (fragment & 0x2000) != 0;
  header.fragmentOffset = (fragment & 0x1FFF) * 8;
  reader.skip(1);
  header.protocol = reader.u8();
  reader.skip(2);
  header.source = reader.u32();
  header.destination = reader.u32();
  if (!reader.ok() || versionAndLength >> 4 != 4 || header.length < 20 || header.length > bytes.size()) return {};
  // A packet that the network card has not segmented yet may have the length 0.
  header.total = total == 0 ? bytes.size() : std::min(total, bytes.size());
  header.missing = std::max(total, bytes.size()) - bytes.size();
  if (header.total < header.length) return {};
  return header;
}

}  // namespace voip
