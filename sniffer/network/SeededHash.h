#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <span>

/// Hashes octets that strangers choose: with a seed of its own in each process, so that nobody can aim at collisions.
/// Multiplies 64 bits to 128 and folds them, eight octets at a time; two lanes, so that the processor need not wait.
class SeededHash {
 public:
  SeededHash() {
    std::random_device device;
    const auto random = [&device] { return std::uint64_t{device()} << 32 | device(); };
    seed = random();
    keys[0] = random() | 1;
    keys[1] = random() | 1;
  }

  std::uint64_t operator()(std::span<const std::uint8_t> bytes) const { return (*this)(bytes, seed); }

  /// Goes on from another hash.
  std::uint64_t operator()(std::span<const std::uint8_t> bytes, std::uint64_t state) const {
    const std::uint8_t* at = bytes.data();
    std::size_t left = bytes.size();
    std::uint64_t other = state ^ left;
    for (; left >= 32; at += 32, left -= 32) {
      state = fold(word(at) ^ keys[0], word(at + 8) ^ state);
      other = fold(word(at + 16) ^ keys[1], word(at + 24) ^ other);
    }
    for (; left >= 8; at += 8, left -= 8) state = fold(word(at) ^ keys[0], state ^ keys[1]);
    std::uint64_t tail = 0;
    if (left > 0) std::memcpy(&tail, at, left);
    return fold(state ^ tail ^ keys[1], other ^ keys[0]);
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

  std::uint64_t seed;
  std::uint64_t keys[2];
};
