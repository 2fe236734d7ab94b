#pragma once

#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

/// Returns the characters of a text.
inline Bytes bytes(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

/// Appends `value` in `size` bytes, in network byte order.
inline void append(Bytes& to, std::uint64_t value, int size) {
  while (size-- > 0) to.push_back(static_cast<std::uint8_t>(value >> 8 * size));
}

inline void append(Bytes& to, const Bytes& more) {
  to.insert(to.end(), more.begin(), more.end());
}
