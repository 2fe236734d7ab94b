#pragma once

#include <arpa/inet.h>
#include <sys/types.h>

#include <cstdint>
#include <cstring>

#include "base/FrameLimits.h"

namespace voip {

/// The content of a forwarded frame: the third byte of its header.
enum class FrameProtocol : std::uint8_t {
  None = 0,         ///< not classified
  Sip = 1,          ///< a SIP message, RFC 3261
  Rtp = 2,          ///< an RTP or RTCP packet, RFC 3550
  Heartbeat = 3,    ///< the reply to a heartbeat: a header without payload; addresses and ports have no meaning
  H323 = 4,         ///< an H.323 description, terminated by a zero byte
  CaptureTime = 5,  ///< the capture time of the next frame: microseconds since 1970 (8 bytes)
};

/// The header of a forwarded frame. The members are in host order.
///
/// On the wire it has 15 bytes without gaps, in network byte order: length (2), protocol (1), destination address (4),
/// destination port (2), source address (4), source port (2).
struct FrameHeader {
  static constexpr int kLength = kForwardedHeader;  ///< bytes on the wire
  static constexpr int kProtocolOffset = 2;         ///< index of the protocol on the wire

  u_short len = 0;  ///< bytes of the whole frame, the header included
  FrameProtocol protocol = FrameProtocol::None;
  u_int dstIp = 0;  ///< IPv4 address, the first octet in the most significant byte
  u_short dstPort = 0;
  u_int srcIp = 0;
  u_short srcPort = 0;

  /// Writes the 15 bytes to `frame`.
  void write(std::uint8_t* frame) const {
    put16(frame, len);
    frame[kProtocolOffset] = static_cast<std::uint8_t>(protocol);
    put32(frame + 3, dstIp);
    put16(frame + 7, dstPort);
    put32(frame + 9, srcIp);
    put16(frame + 13, srcPort);
  }

  /// Returns the header that the first 15 bytes of `frame` contain.
  static FrameHeader of(const std::uint8_t* frame) {
    return {get16(frame), protocolOf(frame), get32(frame + 3), get16(frame + 7), get32(frame + 9), get16(frame + 13)};
  }

  /// Returns the protocol in the header of `frame`.
  static FrameProtocol protocolOf(const std::uint8_t* frame) {
    return static_cast<FrameProtocol>(frame[kProtocolOffset]);
  }

 private:
  static void put16(std::uint8_t* at, u_short value) {
    const u_short wire = htons(value);
    std::memcpy(at, &wire, sizeof wire);
  }
  static void put32(std::uint8_t* at, u_int value) {
    const u_int wire = htonl(value);
    std::memcpy(at, &wire, sizeof wire);
  }
  static u_short get16(const std::uint8_t* at) {
    u_short wire;
    std::memcpy(&wire, at, sizeof wire);
    return ntohs(wire);
  }
  static u_int get32(const std::uint8_t* at) {
    u_int wire;
    std::memcpy(&wire, at, sizeof wire);
    return ntohl(wire);
  }
};

}  // namespace voip
