#pragma once

#include <arpa/inet.h>
#include <sys/types.h>

#include <cstdint>
#include <cstring>

#include "base/FrameLimits.h"
#include "base/IpEndpoint.h"

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
/// destination port (2), source address (4), source port (2). The addresses of an IPv6 packet have 16 bytes each, so
/// that the header has 39, and bit 0x40 of the protocol is set.
struct FrameHeader {
  static constexpr int kLength = kForwardedHeader;          ///< bytes on the wire, IPv4
  static constexpr int kIpv6Length = kForwardedIpv6Header;  ///< the same, IPv6
  static constexpr int kProtocolOffset = 2;                 ///< index of the protocol on the wire
  static constexpr std::uint8_t kIpv6Bit = 0x40;            ///< of the protocol on the wire

  u_short len = 0;  ///< bytes of the whole frame, the header included
  FrameProtocol protocol = FrameProtocol::None;
  IpAddress dstIp = 0;
  u_short dstPort = 0;
  IpAddress srcIp = 0;  ///< of the same family
  u_short srcPort = 0;

  /// Returns the length in bytes of the header of a frame with an address of this family.
  static constexpr std::size_t lengthFor(const IpAddress& address) {
    return address.isIpv4() ? kForwardedHeader : kForwardedIpv6Header;
  }

  /// Returns the length in bytes of this header.
  std::size_t length() const { return lengthFor(dstIp); }

  /// Writes the length() bytes to `frame`.
  void write(std::uint8_t* frame) const {
    put16(frame, len);
    frame[kProtocolOffset] = static_cast<std::uint8_t>(protocol);
    if (!dstIp.isIpv4()) {
      frame[kProtocolOffset] |= kIpv6Bit;
      dstIp.write(frame + 3);
      put16(frame + 19, dstPort);
      srcIp.write(frame + 21);
      put16(frame + 37, srcPort);
      return;
    }
    put32(frame + 3, dstIp.ipv4());
    put16(frame + 7, dstPort);
    put32(frame + 9, srcIp.ipv4());
    put16(frame + 13, srcPort);
  }

  /// Returns the header at the beginning of `frame`.
  static FrameHeader of(const std::uint8_t* frame) {
    if (!isIpv6(frame)) return ofIpv4(frame);
    return {get16(frame),      protocolOf(frame),           IpAddress::read(frame + 3),
            get16(frame + 19), IpAddress::read(frame + 21), get16(frame + 37)};
  }

  /// As of(), for a frame with IPv4 addresses.
  static FrameHeader ofIpv4(const std::uint8_t* frame) {
    return {get16(frame), protocolOf(frame), get32(frame + 3), get16(frame + 7), get32(frame + 9), get16(frame + 13)};
  }

  /// Returns true when the header of `frame` has IPv6 addresses.
  static bool isIpv6(const std::uint8_t* frame) { return (frame[kProtocolOffset] & kIpv6Bit) != 0; }

  /// Returns the protocol in the header of `frame`, which is the same for IPv4 and IPv6.
  static FrameProtocol protocolOf(const std::uint8_t* frame) {
    return static_cast<FrameProtocol>(frame[kProtocolOffset] & ~kIpv6Bit);
  }

  /// Returns the length in bytes of the header of `frame`.
  static std::size_t lengthOf(const std::uint8_t* frame) {
    return isIpv6(frame) ? kForwardedIpv6Header : kForwardedHeader;
  }

  /// Returns the destination in the header of `frame`.
  static IpEndpoint destinationOf(const std::uint8_t* frame) {
    if (isIpv6(frame)) return {IpAddress::read(frame + 3), get16(frame + 19)};
    return {get32(frame + 3), get16(frame + 7)};
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
