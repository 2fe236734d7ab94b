#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "base/IpAddress.h"

/// One command of the recorder.
///
/// On the wire it has 7 bytes in network byte order: code (1), IPv4 address (4), port (2). With IPv6 the codes 4 and 5
/// have 19 bytes, because their address has 16. On TCP, commands follow each other without a separator; a datagram
/// contains one.
struct SnifferRequest {
  static constexpr int kWireLength = 7;       ///< bytes
  static constexpr int kIpv6WireLength = 19;  ///< bytes of a command with an IPv6 address

  // Codes; any other has no effect.
  static constexpr u_short kAddDestination = 1;
  static constexpr u_short kRemoveDestination = 2;
  static constexpr u_short kHeartbeat = 3;
  static constexpr u_short kAddIpv6Destination = 4;     ///< has no effect without an IPv6 address
  static constexpr u_short kRemoveIpv6Destination = 5;  ///< likewise

  u_short request = 0;            ///< one of the codes above
  u_int rtpAddr = 0;              ///< IPv4 address in host order: the first octet in the most significant byte
  u_short rtpPort = 0;            ///< UDP port in host order
  bool hasIpv6 = false;           ///< `ipv6Addr` is the address, not `rtpAddr`
  voip::IpAddress ipv6Addr = {};  ///< an IPv4-mapped address is that IPv4 address

  SnifferRequest() = default;
  SnifferRequest(u_short code, u_int addr, u_short port) : request(code), rtpAddr(addr), rtpPort(port) {}
  SnifferRequest(u_short code, const voip::IpAddress& addr, u_short port)
      : request(code), rtpPort(port), hasIpv6(true), ipv6Addr(addr) {}
  bool operator==(const SnifferRequest&) const = default;

  /// Returns the address.
  voip::IpAddress address() const { return hasIpv6 ? ipv6Addr : voip::IpAddress(rtpAddr); }

  /// Returns the length in bytes of a command that begins with `code`. `withIpv6`: the recorder may send IPv6
  /// addresses.
  static constexpr std::size_t wireLength(std::uint8_t code, bool withIpv6) {
    const bool isIpv6 = withIpv6 && (code == kAddIpv6Destination || code == kRemoveIpv6Destination);
    return isIpv6 ? kIpv6WireLength : kWireLength;
  }

  /// Returns the command in the 7 bytes at `wire`.
  static SnifferRequest fromWire(const std::uint8_t* wire) {
    return {wire[0], u_int{wire[1]} << 24 | u_int{wire[2]} << 16 | u_int{wire[3]} << 8 | u_int{wire[4]},
            static_cast<u_short>(wire[5] << 8 | wire[6])};
  }

  /// Returns the command in the 19 bytes at `wire`.
  static SnifferRequest fromIpv6Wire(const std::uint8_t* wire) {
    return {wire[0], voip::IpAddress::read(wire + 1), static_cast<u_short>(wire[17] << 8 | wire[18])};
  }
};
