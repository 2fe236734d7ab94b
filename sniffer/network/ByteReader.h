#pragma once

#include <endian.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace voip {

/// Reads fields in network byte order from the beginning of captured bytes, never beyond their end. A read that would
/// go beyond the end returns 0 and consumes the remaining bytes; ok() is false from then on, so it needs to be checked
/// only where the value matters.
class ByteReader {
 public:
  explicit ByteReader(std::span<const std::uint8_t> bytes) : all_(bytes), end_(bytes.size()) {}

  std::uint8_t u8() { return number<std::uint8_t>(); }
  std::uint16_t u16() { return be16toh(number<std::uint16_t>()); }
  std::uint32_t u32() { return be32toh(number<std::uint32_t>()); }

  void skip(std::size_t length) {
    isCut_ |= length > left();
    at_ += std::min(length, left());
  }

  /// Ends the bytes after `length` more, as a length field says.
  void limit(std::size_t length) { end_ = at_ + std::min(length, left()); }

  /// Returns the next byte without consuming it, or 0 at the end.
  std::uint8_t peek() const { return left() > 0 ? all_[at_] : std::uint8_t{0}; }

  bool ok() const { return !isCut_; }
  std::size_t position() const { return at_; }
  std::size_t left() const { return end_ - at_; }
  std::span<const std::uint8_t> rest() const { return all_.subspan(at_, left()); }

 private:
  template <class Number>
  Number number() {
    if (sizeof(Number) > left()) {
      isCut_ = true;
      at_ = end_;
      return 0;
    }
    Number value;
    std::memcpy(&value, all_.data() + at_, sizeof value);
    at_ += sizeof value;
    return value;
  }

  std::span<const std::uint8_t> all_;
  std::size_t at_ = 0;
  std::size_t end_;
  bool isCut_ = false;
};

}  // namespace voip
