#pragma once

#include <cstdint>
#include <string>

namespace voip {

/// Returns the text of an IPv4 address in host order: "10.1.2.3" for 0x0a010203. Any thread.
inline std::string dottedDecimal(std::uint32_t address) {
  return std::to_string(address >> 24) + "." + std::to_string(address >> 16 & 0xFF) + "." +
         std::to_string(address >> 8 & 0xFF) + "." + std::to_string(address & 0xFF);
}

}  // namespace voip
