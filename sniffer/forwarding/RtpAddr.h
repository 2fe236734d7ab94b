#pragma once

#include <sys/types.h>

#include <bit>
#include <cstdint>

/// One destination that the recorder wants the RTP of.
struct RtpAddr {
  u_int rtpIp;         ///< IPv4 address in host order, first octet most significant
  u_short rtpPort;     ///< UDP port in host order
  u_short filler = 0;  ///< always 0: the eight bytes have no gap

  RtpAddr(u_int ip, u_short port) : rtpIp(ip), rtpPort(port) {}
  bool operator==(const RtpAddr& other) const { return key() == other.key(); }
  std::uint64_t key() const { return std::bit_cast<std::uint64_t>(*this); }
};
