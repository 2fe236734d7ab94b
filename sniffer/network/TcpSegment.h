#pragma once

#include <endian.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "network/Octets.h"
#include "network/WireHeaders.h"

namespace voip {

/// The fields of a TCP header (RFC 9293) that the network stack uses, in host order.
struct TcpSegment {
  std::uint16_t sourcePort = 0;
  std::uint16_t destinationPort = 0;
  std::uint32_t sequence = 0;
  std::uint32_t acknowledged = 0;
  bool isSyn = false;
  bool isFin = false;
  bool isReset = false;
  bool hasAcknowledged = false;
  Octets payload;
  std::size_t missing = 0;  ///< octets of the payload that were not captured, at its end

  bool isBare() const { return payload.empty() && missing == 0; }

  /// Returns nothing when the header is invalid. `bytes` ends with the IP packet, or `missing` octets before its end.
  static std::optional<TcpSegment> read(Octets bytes, std::size_t missing = 0) {
    sniff_tcp header;
    if (bytes.size() < sizeof header) return {};
    std::memcpy(&header, bytes.data(), sizeof header);
    const std::size_t length = (header.th_offx2 >> 4) * std::size_t{4};
    if (length < sizeof header || length > bytes.size()) return {};
    const unsigned flags = header.th_flags;
    return TcpSegment{be16toh(header.th_sport), be16toh(header.th_dport),
                      be32toh(header.th_seq),   be32toh(header.th_ack),
                      (flags & 0x02) != 0,      (flags & 0x01) != 0,
                      (flags & 0x04) != 0,      (flags & 0x10) != 0,
                      bytes.subspan(length),    missing};
  }
};

}  // namespace voip
