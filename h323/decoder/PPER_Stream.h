#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "h323/base/PBYTEArray.h"
#include "h323/decoder/Effort.h"

// Reads the aligned variant of the basic packed encoding rules (X.691, July 2002) bit by bit from octets that somebody
// else owns.
//
// Nothing is read behind the end. A read that would, or that finds what the rules exclude, fails the stream for good:
// from then on every read answers 0. So a decoder may read on and ask once, at the end.
class PPER_Stream {
 public:
  explicit PPER_Stream(const PBYTEArray& octets)
      : octets_(octets.GetPointer()), size_(octets.GetSize()), end_(octets.GetSize() * 8) {}
  // What is decoded from the stream is charged to `effort`, which must outlive it; else to an Effort of its own.
  PPER_Stream(const PBYTEArray& octets, asn1::Effort& effort) : PPER_Stream(octets) { effort_ = &effort; }

  // Null if the stream has none of its own.
  asn1::Effort* effort() const { return effort_; }

  bool failed() const { return failed_; }
  void fail() {
    failed_ = true;
    position_ = end_ = 0;
  }

  // In bits from the beginning.
  std::size_t position() const { return position_; }
  std::size_t bitsLeft() const { return end_ - position_; }

  bool bit() { return bits(1) != 0; }

  // `count` bits as a number, the first one the most significant; at most 56.
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

  // Skips the padding up to the next octet.
  void align() {
    position_ = (position_ + 7) & ~std::size_t{7};
    if (position_ > end_) fail();
  }

  void skip(std::size_t count) {
    if (count > bitsLeft()) return fail();
    position_ += count;
  }

  // The next `count` octets, which start at an octet boundary; null after a failure.
  const std::uint8_t* octets(std::size_t count) {
    const std::size_t first = position_ / 8;
    if (count > bitsLeft() / 8) fail();
    if (failed_) return nullptr;
    position_ += count * 8;
    return octets_ + first;
  }

  // A non-negative number in `count` whole octets, aligned. What does not fit in 64 bits is UINT64_MAX.
  std::uint64_t octetNumber(std::size_t count);

  // X.691, 10.6: a small number without upper limit.
  std::uint64_t smallNumber();

  // X.691, 10.9.3.4: the number of extension bits, at least 1.
  std::size_t smallLength();

  // X.691, 10.9.3.5 to 10.9.3.8: a length without upper limit. When `more` is set on return, it is the length of a
  // fragment, and another length follows behind what it counts.
  std::size_t length(bool& more);

  // Narrows the stream to the next `count` octets; answers the end to give to leave() afterwards.
  std::size_t enter(std::size_t count) {
    const std::size_t outer = end_;
    if (count > bitsLeft() / 8) {
      fail();
      return 0;
    }
    end_ = position_ + count * 8;
    return outer;
  }
  // Skips what is left of the narrowed stream and widens it again.
  void leave(std::size_t outer) {
    if (failed_) return;
    position_ = end_;
    end_ = outer;
  }

 private:
  // Eight octets from `index`, which is less than size_, with zeros behind the end.
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
