#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "h323/base/PBYTEArray.h"
#include "h323/decoder/Effort.h"

/// Reads basic packed encoding rules, aligned variant (X.691, July 2002), bit by bit. The stream does not own the
/// octets.
///
/// No read goes beyond the end. A read that would, or that finds what the rules exclude, fails the stream. A failure is
/// permanent, and every read after it returns 0, so a decoder need only check for it at the end.
class PPER_Stream {
 public:
  explicit PPER_Stream(const PBYTEArray& octets)
      : octets_(octets.GetPointer()), size_(octets.GetSize()), end_(octets.GetSize() * 8) {}
  /// `effort` is charged for everything decoded from this stream and must outlive it. Without it each message has its
  /// own Effort.
  PPER_Stream(const PBYTEArray& octets, asn1::Effort& effort) : PPER_Stream(octets) { effort_ = &effort; }

  /// Null if the stream was constructed without one.
  asn1::Effort* effort() const { return effort_; }

  bool failed() const { return failed_; }
  void fail() {
    failed_ = true;
    position_ = end_ = 0;
  }

  /// In bits from the beginning.
  std::size_t position() const { return position_; }
  std::size_t bitsLeft() const { return end_ - position_; }

  bool bit() { return bits(1) != 0; }

  /// Reads `count` bits, at most 56, as a number. The first bit is the most significant one.
  std::uint64_t bits(unsigned count) {
    if (count > bitsLeft()) {
      fail();
      return 0;
    }
    if (count == 0) return 0;
    const std::uint64_t word = wordAt(position_ / 8) << position_ % 8;
    position_ += count;
    return word >> (64 - count);
  }

  /// Skips the padding up to the next octet boundary.
  void align() {
    position_ = (position_ + 7) & ~std::size_t{7};
    if (position_ > end_) fail();
  }

  /// Skips `count` bits.
  void skip(std::size_t count) {
    if (count > bitsLeft()) return fail();
    position_ += count;
  }

  /// Returns the next `count` octets as a view, null after a failure. The position must be an octet boundary.
  const std::uint8_t* octets(std::size_t count) {
    const std::size_t first = position_ / 8;
    if (count > bitsLeft() / 8) fail();
    if (failed_) return nullptr;
    position_ += count * 8;
    return octets_ + first;
  }

  /// Aligns and reads a non-negative number of `count` octets. A number of more than 64 bits becomes UINT64_MAX.
  std::uint64_t octetNumber(std::size_t count);

  /// X.691, 10.6: reads a normally small number.
  std::uint64_t smallNumber();

  /// X.691, 10.9.3.4: reads a normally small length, at least 1: the number of extension bits.
  std::size_t smallLength();

  /// X.691, 10.9.3.5 to 10.9.3.8: reads a length without upper limit. If `more` is set on return, this is the length of
  /// a fragment, and another length follows the fragment.
  std::size_t length(bool& more);

  /// Narrows the stream to the next `count` octets. Returns the argument for leave().
  std::size_t enter(std::size_t count) {
    const std::size_t outer = end_;
    if (count > bitsLeft() / 8) {
      fail();
      return 0;
    }
    end_ = position_ + count * 8;
    return outer;
  }
  /// Skips the rest of the narrowed stream and widens it again.
  void leave(std::size_t outer) {
    if (failed_) return;
    position_ = end_;
    end_ = outer;
  }

 private:
  /// Returns eight octets from `index`, which is less than size_, padded with zeros after the end.
  std::uint64_t wordAt(std::size_t index) const {
    std::uint64_t word = 0;
    if (size_ < sizeof(word)) {
      std::memcpy(&word, octets_, size_);
      return bigEndian(word) << index * 8;
    }
    const std::size_t last = size_ - sizeof(word);
    std::memcpy(&word, octets_ + std::min(index, last), sizeof(word));
    return bigEndian(word) << (index > last ? (index - last) * 8 : 0);
  }

  static std::uint64_t bigEndian(std::uint64_t word) {
    return std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
  }

  const std::uint8_t* octets_;
  std::size_t size_;
  std::size_t position_ = 0;
  std::size_t end_;
  bool failed_ = false;
  asn1::Effort* effort_ = nullptr;
};
