#pragma once

#include <sys/types.h>

#include "base/IpEndpoint.h"

/// An IPv4 destination whose media the recorder has asked for.
struct RtpAddr {
  u_int rtpIp;      ///< IPv4 address in host order: the first octet in the most significant byte
  u_short rtpPort;  ///< UDP port in host order

  RtpAddr(u_int ip, u_short port) : rtpIp(ip), rtpPort(port) {}

  bool operator==(const RtpAddr&) const = default;

  operator voip::IpEndpoint() const { return {rtpIp, rtpPort}; }
};
