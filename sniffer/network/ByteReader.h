#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

/// Reads fields in network byte order off the front of captured bytes, and never beyond their end. A read that the end
/// cuts off answers 0, takes all that is left and is remembered: ok() need be asked only where it matters.
class ByteReader {
 public:
  explicit ByteReader(std::span<const std::uint8_t> bytes) : all(bytes), end(bytes.size()) {}

  std::uint8_t u8() { return static_cast<std::uint8_t>(number(1)); }
  std::uint16_t u16() { return static_cast<std::uint16_t>(number(2)); }
  std::uint32_t u32() { return number(4); }

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
  std::uint32_t number(std::size_t size) {
    if (size > left()) {
      cut = true;
      at = end;
      return 0;
    }
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) value = value << 8 | all[at + i];
    at += size;
    return value;
  }

  std::span<const std::uint8_t> all;
  std::size_t at = 0;
  std::size_t end;
  bool cut = false;
};
