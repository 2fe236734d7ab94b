#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/IpAddress.h"
#include "base/SeededHash.h"

namespace voip {

/// An IPv4 or IPv6 address and a UDP port in host order: a destination of media.
struct IpEndpoint {
  IpAddress address;
  std::uint16_t port = 0;

  bool operator==(const IpEndpoint&) const = default;
};

/// Hashes endpoints, which anyone can choose, with a random seed. The seed is that of the process, since a table is
/// often made and soon destroyed. Any thread.
struct IpEndpointHash {
  std::size_t operator()(const IpEndpoint& endpoint) const {
    static const SeededHash hash;
    const std::array<std::uint64_t, 3> words = {endpoint.address.high(), endpoint.address.low(), endpoint.port};
    std::array<std::uint8_t, sizeof words> octets;
    std::memcpy(octets.data(), words.data(), sizeof words);
    return hash(octets);
  }
};

}  // namespace voip
