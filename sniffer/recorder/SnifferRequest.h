#pragma once

#include <sys/types.h>

#include <cstdint>

/// One command of the recorder.
///
/// On the wire it has 7 bytes in network byte order: code (1), IPv4 address (4), port (2). On TCP, commands follow each
/// other without a separator; a datagram contains one.
struct SnifferRequest {
  static constexpr int kWireLength = 7;  ///< bytes

  // Codes; any other has no effect.
  static constexpr u_short kAddDestination = 1;
  static constexpr u_short kRemoveDestination = 2;
  static constexpr u_short kHeartbeat = 3;

  u_short request = 0;  ///< one of the codes above
  u_int rtpAddr = 0;    ///< IPv4 address in host order: the first octet in the most significant byte
  u_short rtpPort = 0;  ///< UDP port in host order

  SnifferRequest() = default;
  SnifferRequest(u_short code, u_int addr, u_short port) : request(code), rtpAddr(addr), rtpPort(port) {}
  bool operator==(const SnifferRequest&) const = default;

  /// Returns the command in the 7 bytes at `wire`.
  static SnifferRequest fromWire(const std::uint8_t* wire) {
    return {wire[0], u_int{wire[1]} << 24 | u_int{wire[2]} << 16 | u_int{wire[3]} << 8 | u_int{wire[4]},
            static_cast<u_short>(wire[5] << 8 | wire[6])};
  }
};
