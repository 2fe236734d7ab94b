#pragma once

#include <cstddef>

namespace voip {

/// Zeroed bytes after each frame in memory: more than any walk over Ethernet with two tags (22), IPv4 (60) and TCP (60)
/// headers and a start-line test (20) can reach from a frame that ends too early.
constexpr std::size_t kFrameSlack = 192;

/// The longest frame to the recorder: its length is a 16-bit field.
constexpr std::size_t kMaxForwardedFrame = 65535;

/// The header before each frame to the recorder.
constexpr std::size_t kForwardedHeader = 15;

}  // namespace voip
