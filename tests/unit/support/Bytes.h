#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<u_char>;

inline Bytes bytes(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

inline void append(Bytes& to, uint64_t value, int size) {
  while (size-- > 0) to.push_back(static_cast<u_char>(value >> 8 * size));
}

inline void append(Bytes& to, const Bytes& more) {
  to.insert(to.end(), more.begin(), more.end());
}
