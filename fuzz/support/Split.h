#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "support/Bytes.h"

/// Cuts a fuzzer's input into pieces, each behind its length in two bytes, the last with what is left.
class Split {
 public:
  Split(const uint8_t* data, std::size_t size) : at(data), left(size) {}

  bool more() const { return left >= 2; }

  Bytes next() {
    const std::size_t length = std::min<std::size_t>(at[0] << 8 | at[1], left - 2);
    const Bytes piece(at + 2, at + 2 + length);
    at += 2 + length;
    left -= 2 + length;
    return piece;
  }

 private:
  const uint8_t* at;
  std::size_t left;
};
