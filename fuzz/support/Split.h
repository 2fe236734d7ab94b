#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "support/Bytes.h"

/// Cuts a fuzzer's input into pieces. The length of each piece is in the two bytes before it, in network byte order;
/// the last piece has the remaining bytes. Does not own the input.
class Split {
 public:
  Split(const std::uint8_t* data, std::size_t size) : at_(data), left_(size) {}

  /// True when there is another piece.
  bool more() const { return left_ >= 2; }

  /// Returns the next piece.
  Bytes next() {
    const std::size_t length = std::min<std::size_t>(at_[0] << 8 | at_[1], left_ - 2);
    Bytes piece(at_ + 2, at_ + 2 + length);
    at_ += 2 + length;
    left_ -= 2 + length;
    return piece;
  }

 private:
  const std::uint8_t* at_;
  std::size_t left_;
};
