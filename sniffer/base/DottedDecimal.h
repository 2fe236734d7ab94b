#pragma once

#include <cstdint>
#include <string>

namespace voip {

/// The text of an IPv4 address in host order: 0x0a010203 gives "10.1.2.3".
inline std::string dottedDecimal(std::uint32_t address) {
  return std::to_string(address >> 24) + "." + std::to_string(address >> 16 & 0xFF) + "." +
         std::to_string(address >> 8 & 0xFF) + "." + std::to_string(address & 0xFF);
}

}  // namespace voip
