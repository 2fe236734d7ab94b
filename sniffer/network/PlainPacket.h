#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "network/NetworkSink.h"

namespace voip {

// The plain path from a frame to its payload: IPv4, then UDP or TCP, with as few fields as possible. The version,
// lengths, fragment fields and checksums are ignored: all bytes up to the end of the frame belong to the packet.
//
// `frame` may be written to and is followed by kFrameSlack zeroed bytes; a header may be beyond its end. `isCaptured`
// as in Datagram.

/// Takes the packet whose IP header is at `ipOffset`.
void takeIp(std::span<std::uint8_t> frame, std::size_t ipOffset, bool isCaptured, NetworkSink& sink);

/// Takes the datagram whose UDP header is at `udpOffset`; `ends` has its addresses.
void takeUdp(std::span<std::uint8_t> frame, std::size_t udpOffset, FlowEnds ends, bool isCaptured, NetworkSink& sink);

/// Takes the segment whose TCP header is at `tcpOffset`; `ends` has its addresses.
void takeTcp(std::span<std::uint8_t> frame, std::size_t tcpOffset, FlowEnds ends, NetworkSink& sink);

// ---- inline: a frame goes through here with as few calls as possible ----

namespace plain_packet {

inline constexpr std::size_t kIpLength = 20;
inline constexpr std::size_t kUdpLength = 8;
inline constexpr int kTcpLength = 20;

template <typename Header>
Header headerAt(const std::uint8_t* at) {
  Header header;
  std::memcpy(&header, at, sizeof header);
  return header;
}

inline std::span<std::uint8_t> payloadFrom(std::span<std::uint8_t> frame, std::size_t offset) {
  return {frame.data() + offset, frame.size() - std::min(offset, frame.size())};
}

}  // namespace plain_packet

inline void takeIp(std::span<std::uint8_t> frame, std::size_t ipOffset, bool isCaptured, NetworkSink& sink) {
  const auto ip = plain_packet::headerAt<sniff_ip>(frame.data() + ipOffset);
  const std::size_t length = (ip.ip_vhl & 0x0F) * std::size_t{4};
  if (length < plain_packet::kIpLength) {
    sink.refuseHeader(ip);
    return;
  }
  const FlowEnds ends{ntohl(ip.ip_src), ntohl(ip.ip_dst), 0, 0};
  if (ip.ip_p == IPPROTO_UDP) {
    takeUdp(frame, ipOffset + length, ends, isCaptured, sink);
  } else if (ip.ip_p == IPPROTO_TCP) {
    takeTcp(frame, ipOffset + length, ends, sink);
  } else {
    sink.refuseProtocol(ip);
  }
}

inline void takeUdp(std::span<std::uint8_t> frame, std::size_t udpOffset, FlowEnds ends, bool isCaptured,
                    NetworkSink& sink) {
  const auto udp = plain_packet::headerAt<sniff_udp>(frame.data() + udpOffset);
  ends.sourcePort = ntohs(udp.uh_sport);
  ends.destinationPort = ntohs(udp.uh_dport);
  sink.takeDatagram({ends, plain_packet::payloadFrom(frame, udpOffset + plain_packet::kUdpLength), isCaptured});
}

inline void takeTcp(std::span<std::uint8_t> frame, std::size_t tcpOffset, FlowEnds ends, NetworkSink& sink) {
  const auto tcp = plain_packet::headerAt<sniff_tcp>(frame.data() + tcpOffset);
  const int length = (tcp.th_offx2 >> 4) * 4;
  if (length < plain_packet::kTcpLength) {
    sink.refuseTcpHeader(length);
    return;
  }
  ends.sourcePort = ntohs(tcp.th_sport);
  ends.destinationPort = ntohs(tcp.th_dport);
  sink.takeSegment({ends, plain_packet::payloadFrom(frame, tcpOffset + static_cast<std::size_t>(length))});
}

}  // namespace voip
