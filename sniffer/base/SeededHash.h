#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <span>

namespace voip {

/// Hashes octets that an attacker can choose. Each object has a random seed, so collisions cannot be provoked.
/// Multiplies two 64-bit values and folds the product of 128 bits, eight octets at a time, in two independent lanes, so
/// that the processor does not wait for a product.
class SeededHash {
 public:
  SeededHash() {
    std::random_device device;
    const auto random = [&device] { return std::uint64_t{device()} << 32 | device(); };
    seed_ = random();
    keys_[0] = random() | 1;
    keys_[1] = random() | 1;
  }

  std::uint64_t operator()(std::span<const std::uint8_t> bytes) const { return (*this)(bytes, seed_); }

  /// Continues another hash.
  std::uint64_t operator()(std::span<const std::uint8_t> bytes, std::uint64_t state) const {
    const std::uint8_t* at = bytes.data();
    const std::size_t size = bytes.size();
    const std::uint8_t* end = at + size;
    std::uint64_t other = state ^ size;
    if (size >= 16) {
      for (; end - at > 32; at += 32) {
        state = fold(word(at) ^ keys_[0], word(at + 8) ^ state);
        other = fold(word(at + 16) ^ keys_[1], word(at + 24) ^ other);
      }
      // The last octets, with earlier octets that fill the words.
      if (end - at > 16) state = fold(word(at) ^ keys_[0], word(at + 8) ^ state);
      other = fold(word(end - 16) ^ keys_[1], word(end - 8) ^ other);
    } else {
      std::uint64_t words[2] = {};
      if (size > 0) std::memcpy(words, at, size);
      state = fold(words[0] ^ keys_[0], words[1] ^ state);
    }
    return fold(state ^ keys_[1], other ^ keys_[0]);
  }

 private:
  static std::uint64_t word(const std::uint8_t* at) {
    std::uint64_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
  }

  static std::uint64_t fold(std::uint64_t a, std::uint64_t b) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
  }

  std::uint64_t seed_;
  std::uint64_t keys_[2];
};

}  // namespace voip
