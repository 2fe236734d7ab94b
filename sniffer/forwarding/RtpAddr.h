#pragma once

#include <sys/types.h>

#include <bit>
#include <cstdint>

/// A destination whose media the recorder has asked for.
struct RtpAddr {
  u_int rtpIp;         ///< IPv4 address in host order: the first octet in the most significant byte
  u_short rtpPort;     ///< UDP port in host order
  u_short filler = 0;  ///< always 0, so that the eight bytes have no gap

  RtpAddr(u_int ip, u_short port) : rtpIp(ip), rtpPort(port) {}

  bool operator==(const RtpAddr& other) const { return key() == other.key(); }

  /// Returns the eight bytes as a number, which is equal for equal destinations.
  std::uint64_t key() const { return std::bit_cast<std::uint64_t>(*this); }
};
