#pragma once

#include <cstdint>
#include <span>

namespace voip {

using Octets = std::span<const std::uint8_t>;

}  // namespace voip
