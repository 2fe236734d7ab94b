#include "network/UdpPayload.h"

#include <netinet/in.h>

#include <algorithm>

#include "network/Decapsulator.h"
#include "network/Ipv4.h"
#include "network/LinkLayer.h"

namespace voip {

Octets udpPayloadOf(Octets frame, int linkType, const NetworkOptions& options) {
  constexpr std::size_t kUdpLength = 8;
  const LinkHeader link = readLinkHeader(linkType, frame);
  Octets packet = frame.subspan(std::min(plainNetworkOffset(link), frame.size()));
  if (options.decapsulate) {
    if (const auto inner = Decapsulator::unwrap(frame, link)) packet = frame.subspan(inner->offset, inner->length);
  }
  const auto header = Ipv4Header::read(packet);
  if (!header || header->protocol != IPPROTO_UDP || header->fragmentOffset > 0) return {};
  return packet.subspan(std::min(header->length + kUdpLength, packet.size()));
}

}  // namespace voip
