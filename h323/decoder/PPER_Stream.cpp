#include "h323/decoder/PPER_Stream.h"

std::uint64_t PPER_Stream::octetNumber(std::size_t count) {
  align();
  if (count == 0) fail();
  const std::uint8_t* octet = octets(count);
  if (octet == nullptr) return 0;
  std::uint64_t number = 0;
  for (const std::uint8_t* const end = octet + count; octet != end; ++octet) {
    if (number >> 56 != 0) return UINT64_MAX;
    number = number << 8 | *octet;
  }
  return number;
}

std::uint64_t PPER_Stream::smallNumber() {
  if (!bit()) return bits(6);
  bool more = false;
  const std::size_t count = length(more);
  // No sender uses a number of more than 16,383 octets.
  if (more) fail();
  return octetNumber(count);
}

std::size_t PPER_Stream::smallLength() {
  if (!bit()) return bits(6) + 1;
  bool more = false;
  const std::size_t count = length(more);
  if (more || count == 0) fail();
  return count;
}

std::size_t PPER_Stream::length(bool& more) {
  constexpr std::size_t kFragment = 16384;
  align();
  const std::uint64_t first = bits(8);
  more = first >= 0xC0;
  if (first < 0x80) return first;
  if (!more) return (first & 0x3F) << 8 | bits(8);
  const std::size_t fragments = first & 0x3F;
  if (fragments < 1 || fragments > 4) {
    fail();
    more = false;
    return 0;
  }
  return fragments * kFragment;
}
