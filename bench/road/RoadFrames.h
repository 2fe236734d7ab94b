#pragma once

#include <arpa/inet.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

/// The frames that the road tools send: Ethernet, IPv4 from 10.0.0.1 to 10.0.0.2, UDP, 172 bytes of payload.
namespace road {

constexpr int kRtpHeader = 12;  // bytes, as below
constexpr int kPayload = 172;
constexpr int kHeaders = 14 + 20 + 8;
constexpr int kSourcePort = 4000;
constexpr int kSourcePortAt = 34;  // index in a frame
using Frame = std::array<unsigned char, kHeaders + kPayload>;

/// Returns a frame with a payload that begins with `payload`. `ports` are source and destination port in network byte
/// order.
inline Frame udpFrame(std::array<unsigned char, 4> ports, std::string_view payload) {
  constexpr unsigned char start[kHeaders - 8] = {
      2,    0, 0, 0, 0, 2, 2, 0, 0,  0,  0, 1, 8,  0,                     // Ethernet
      0x45, 0, 0, 0, 0, 0, 0, 0, 64, 17, 0, 0, 10, 0, 0, 1, 10, 0, 0, 2,  // IPv4 from 10.0.0.1 to 10.0.0.2
  };
  Frame frame{};
  std::memcpy(frame.data(), start, sizeof start);
  std::memcpy(&frame[kSourcePortAt], ports.data(), ports.size());
  std::memcpy(&frame[kHeaders], payload.data(), payload.size());
  const std::uint16_t ipLength = htons(20 + 8 + kPayload);
  const std::uint16_t udpLength = htons(8 + kPayload);
  std::memcpy(&frame[16], &ipLength, 2);
  std::memcpy(&frame[38], &udpLength, 2);
  return frame;
}

/// A packet of a G.711 stream to 10.0.0.2:5000.
inline Frame rtpFrame() {
  return udpFrame({0x0F, 0xA0, 0x13, 0x88}, "\x80\x08");  // from port 4000 to port 5000; PCMA
}

/// A SIP request, whose frame makes a sniffer connect to its recorder.
inline Frame sipFrame() {
  return udpFrame({0x13, 0xC4, 0x13, 0xC4}, "OPTIONS sip:bob@10.0.0.2 SIP/2.0\r\n\r\n");
}

/// Writes the flow and the number of an RTP frame: number `i` of all frames, which take turns in so many flows.
inline void numberFrame(unsigned char* frame, int i, int flows) {
  const std::uint16_t port = htons(static_cast<std::uint16_t>(kSourcePort + i % flows));
  const std::uint32_t number = htonl(static_cast<std::uint32_t>(i / flows));
  std::memcpy(frame + kSourcePortAt, &port, sizeof port);
  std::memcpy(frame + kHeaders + kRtpHeader, &number, sizeof number);
}

}  // namespace road
