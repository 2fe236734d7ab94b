#include "network/UdpPayload.h"

#include <netinet/in.h>

#include <algorithm>

#include "network/Decapsulator.h"
#include "network/Ipv4.h"
#include "network/Ipv6.h"
#include "network/LinkLayer.h"

namespace voip {

namespace {

constexpr std::size_t kUdpLength = 8;

/// Returns the payload of the UDP datagram in a packet with this header.
template <class Header>
Octets payloadIn(Octets packet, const std::optional<Header>& header) {
  if (!header || header->protocol != IPPROTO_UDP || header->fragmentOffset > 0) return {};
  return packet.subspan(std::min(header->length + kUdpLength, packet.size()));
}

}  // namespace

Octets udpPayloadOf(Octets frame, int linkType, const NetworkOptions& options) {
  const LinkHeader link = readLinkHeader(linkType, frame);
  Octets packet = frame.subspan(std::min(plainNetworkOffset(link), frame.size()));
  bool isIpv6 = options.ipv6 && isPlainIpv6(link, frame);
  if (options.decapsulate) {
    if (const auto inner = Decapsulator(options).unwrap(frame, link)) {
      packet = frame.subspan(inner->offset, inner->length);
      isIpv6 = inner->isIpv6;
    }
  }
  return isIpv6 ? payloadIn(packet, Ipv6Header::read(packet)) : payloadIn(packet, Ipv4Header::read(packet));
}

}  // namespace voip
