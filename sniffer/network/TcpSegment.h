#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "network/ByteReader.h"

namespace voip {

/// The fields of a TCP header (RFC 9293) that matter here, in host order.
struct TcpSegment {
  std::uint16_t sourcePort = 0;
  std::uint16_t destinationPort = 0;
  std::uint32_t sequence = 0;
  bool isSyn = false;
  bool isReset = false;
  std::span<const std::uint8_t> payload;

  /// Nothing when the header makes no sense. `bytes` end where the IP packet does.
  static std::optional<TcpSegment> read(std::span<const std::uint8_t> bytes) {
    ByteReader reader(bytes);
    TcpSegment segment;
    segment.sourcePort = reader.u16();
    segment.destinationPort = reader.u16();
    segment.sequence = reader.u32();
    reader.skip(4);
    const std::size_t length = (reader.u8() >> 4) * std::size_t{4};
    const unsigned flags = reader.u8();
    segment.isSyn = (flags & 0x02) != 0;
    segment.isReset = (flags & 0x04) != 0;
    if (length < 20 || length > bytes.size()) return {};
    segment.payload = bytes.subspan(length);
    return segment;
  }
};

}  // namespace voip
