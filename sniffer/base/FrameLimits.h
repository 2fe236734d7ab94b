#pragma once

#include <cstddef>

namespace voip {

/// Number of zeroed bytes after each captured frame in memory. Reading the headers of a truncated frame stays within
/// them: Ethernet with two tags (22), IPv4 (60), TCP (60) and the test of a start line (20).
constexpr std::size_t kFrameSlack = 192;

/// Maximum length in bytes of a forwarded frame with its header: the length is a 16-bit field.
constexpr std::size_t kMaxForwardedFrame = 65535;

/// Length in bytes of the header of a forwarded frame with IPv4 addresses.
constexpr std::size_t kForwardedHeader = 15;

/// The same with IPv6 addresses. It fits in the place of an IPv6 and a UDP header, which have 48 bytes.
constexpr std::size_t kForwardedIpv6Header = 39;

}  // namespace voip
