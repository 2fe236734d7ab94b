#include "network/PlainPacket.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>

namespace voip {

namespace {

constexpr std::size_t kIpLength = 20;
constexpr std::size_t kUdpLength = 8;
constexpr int kTcpLength = 20;

template <typename Header>
Header headerAt(const std::uint8_t* at) {
  Header header;
  std::memcpy(&header, at, sizeof header);
  return header;
}

std::span<std::uint8_t> from(std::span<std::uint8_t> frame, std::size_t offset) {
  return {frame.data() + offset, frame.size() - std::min(offset, frame.size())};
}

}  // namespace

void takeIp(std::span<std::uint8_t> frame, std::size_t ipOffset, bool isCaptured, NetworkSink& sink) {
  const auto ip = headerAt<sniff_ip>(frame.data() + ipOffset);
  const std::size_t length = (ip.ip_vhl & 0x0F) * std::size_t{4};
  if (length < kIpLength) {
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

void takeUdp(std::span<std::uint8_t> frame, std::size_t udpOffset, FlowEnds ends, bool isCaptured, NetworkSink& sink) {
  const auto udp = headerAt<sniff_udp>(frame.data() + udpOffset);
  ends.sourcePort = ntohs(udp.uh_sport);
  ends.destinationPort = ntohs(udp.uh_dport);
  sink.takeDatagram({ends, from(frame, udpOffset + kUdpLength), isCaptured});
}

void takeTcp(std::span<std::uint8_t> frame, std::size_t tcpOffset, FlowEnds ends, NetworkSink& sink) {
  const auto tcp = headerAt<sniff_tcp>(frame.data() + tcpOffset);
  const int length = (tcp.th_offx2 >> 4) * 4;
  if (length < kTcpLength) {
    sink.refuseTcpHeader(length);
    return;
  }
  ends.sourcePort = ntohs(tcp.th_sport);
  ends.destinationPort = ntohs(tcp.th_dport);
  sink.takeSegment({ends, from(frame, tcpOffset + static_cast<std::size_t>(length))});
}

}  // namespace voip
