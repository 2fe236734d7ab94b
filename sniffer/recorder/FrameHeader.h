#pragma once

#include <arpa/inet.h>
#include <sys/types.h>

#include <cstring>

#include "base/FrameLimits.h"

namespace voip {

/// What a forwarded frame holds: the third byte of its header.
enum class FrameProtocol : u_char {
  None = 0,         ///< not classified
  Sip = 1,          ///< a SIP message, RFC 3261
  Rtp = 2,          ///< an RTP or RTCP packet, RFC 3550
  Heartbeat = 3,    ///< the answer to a heartbeat; nothing behind the header, and its addresses mean nothing
  H323 = 4,         ///< the text that describes H.323 signalling, closed by a zero byte
  CaptureTime = 5,  ///< when the next frame was captured
};

/// The 15 bytes in front of every frame for the recorder, all of them in host order here.
///
/// On the wire, without gaps and most significant byte first: length (2), protocol (1), destination address (4) and
/// port (2), source address (4) and port (2).
struct FrameHeader {
  static constexpr int kLength = kForwardedHeader;  ///< on the wire
  static constexpr int kProtocolOffset = 2;         ///< of the protocol on the wire

  u_short len = 0;  ///< of the whole frame, these 15 bytes included
  FrameProtocol protocol = FrameProtocol::None;
  u_int dstIp = 0;  ///< IPv4 address, first octet most significant
  u_short dstPort = 0;
  u_int srcIp = 0;
  u_short srcPort = 0;

  /// Writes the 15 bytes to `frame`.
  void write(u_char* frame) const {
    put16(frame, len);
    frame[kProtocolOffset] = static_cast<u_char>(protocol);
    put32(frame + 3, dstIp);
    put16(frame + 7, dstPort);
    put32(frame + 9, srcIp);
    put16(frame + 13, srcPort);
  }

  /// Reads them back.
  static FrameHeader of(const u_char* frame) {
    return {get16(frame), protocolOf(frame), get32(frame + 3), get16(frame + 7), get32(frame + 9), get16(frame + 13)};
  }

  static FrameProtocol protocolOf(const u_char* frame) { return static_cast<FrameProtocol>(frame[kProtocolOffset]); }

 private:
  static void put16(u_char* at, u_short value) {
    const u_short wire = htons(value);
    std::memcpy(at, &wire, sizeof wire);
  }
  static void put32(u_char* at, u_int value) {
    const u_int wire = htonl(value);
    std::memcpy(at, &wire, sizeof wire);
  }
  static u_short get16(const u_char* at) {
    u_short wire;
    std::memcpy(&wire, at, sizeof wire);
    return ntohs(wire);
  }
  static u_int get32(const u_char* at) {
    u_int wire;
    std::memcpy(&wire, at, sizeof wire);
    return ntohl(wire);
  }
};

}  // namespace voip
