#pragma once

#include <sys/types.h>

/// One command of the recorder.
///
/// On the wire it is 7 bytes: the code (1), an IPv4 address (4) and a port (2), both in network byte order. Over TCP
/// commands follow each other without anything between them; a datagram carries one.
struct SnifferRequest {
  static constexpr int kWireLength = 7;

  // Codes; any other is of no effect.
  static constexpr u_short kAddDestination = 1;
  static constexpr u_short kRemoveDestination = 2;
  static constexpr u_short kHeartbeat = 3;

  u_short request = 0;  ///< one of the codes above
  u_int rtpAddr = 0;    ///< IPv4 address in host order: the first octet is the most significant byte
  u_short rtpPort = 0;  ///< UDP port in host order

  SnifferRequest() = default;
  SnifferRequest(u_short code, u_int addr, u_short port) : request(code), rtpAddr(addr), rtpPort(port) {}
  bool operator==(const SnifferRequest&) const = default;

  /// Decodes the 7 bytes at `wire`.
  static SnifferRequest fromWire(const u_char* wire) {
    return {wire[0], u_int{wire[1]} << 24 | u_int{wire[2]} << 16 | u_int{wire[3]} << 8 | u_int{wire[4]},
            static_cast<u_short>(wire[5] << 8 | wire[6])};
  }
};
