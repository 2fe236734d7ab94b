#pragma once

#include <endian.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace voip {

/// Reads fields in network byte order off the front of captured bytes, and never beyond their end. A read that the end
/// cuts off answers 0, takes all that is left and is remembered: ok() need be asked only where it matters.
class ByteReader {
 public:
  explicit ByteReader(std::span<const std::uint8_t> bytes) : all(bytes), end(bytes.size()) {}

  std::uint8_t u8() { return number<std::uint8_t>(); }
  std::uint16_t u16() { return be16toh(number<std::uint16_t>()); }
  std::uint32_t u32() { return be32toh(number<std::uint32_t>()); }

  void skip(std::size_t length) {
    cut |= length > left();
    at += std::min(length, left());
  }

  /// A length field says that nothing that belongs here comes after `length` more bytes.
  void limit(std::size_t length) { end = at + std::min(length, left()); }

  /// The byte that comes next, or 0.
  std::uint8_t peek() const { return left() > 0 ? all[at] : std::uint8_t{0}; }

  bool ok() const { return !cut; }
  std::size_t position() const { return at; }
  std::size_t left() const { return end - at; }
  std::span<const std::uint8_t> rest() const { return all.subspan(at, left()); }

 private:
  template <class Number>
  Number number() {
    if (sizeof(Number) > left()) {
      cut = true;
      at = end;
      return 0;
    }
    Number value;
    std::memcpy(&value, all.data() + at, sizeof value);
    at += sizeof value;
    return value;
  }

  std::span<const std::uint8_t> all;
  std::size_t at = 0;
  std::size_t end;
  bool cut = false;
};

}  // namespace voip
