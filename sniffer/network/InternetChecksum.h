#pragma once

#include <endian.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "network/Octets.h"

namespace voip {

/// Adds up 16-bit words in network byte order, with an odd last octet in the upper half of a word (RFC 1071). The sum
/// is computed in this machine's byte order; the checksum does not depend on the order. Takes 32 bits at a time.
inline std::uint64_t sumWords(Octets octets, std::uint64_t sum = 0) {
  std::uint32_t word = 0;
  std::size_t at = 0;
  for (; at + sizeof word <= octets.size(); at += sizeof word) {
    std::memcpy(&word, octets.data() + at, sizeof word);
    sum += word;
  }
  word = 0;
  std::memcpy(&word, octets.data() + at, octets.size() - at);
  return sum + word;
}

/// Returns the checksum of the words, in host order. It is 0 when the words include a correct checksum.
inline std::uint16_t checksumOf(std::uint64_t sum) {
  while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
  return be16toh(static_cast<std::uint16_t>(~sum));
}

}  // namespace voip
