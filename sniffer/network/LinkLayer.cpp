#include "network/LinkLayer.h"

#include <pcap/dlt.h>

#include <algorithm>

#include "network/ByteReader.h"
#include "network/EtherType.h"

namespace voip {

namespace {

/// For link layers without an EtherType: the IP version decides.
std::uint16_t byVersion(std::span<const std::uint8_t> frame, std::size_t at) {
  if (at >= frame.size()) return 0;
  return frame[at] >> 4 == 6 ? kEtherIpv6 : kEtherIpv4;
}

LinkHeader withTypeAt(std::span<const std::uint8_t> frame, std::size_t typeAt, std::size_t length) {
  ByteReader reader(frame);
  reader.skip(typeAt);
  return {length, reader.u16()};
}

/// PPP, after the bytes of address and control if there are any. Cisco's framing has an EtherType after these.
LinkHeader readPpp(std::span<const std::uint8_t> frame) {
  constexpr std::uint8_t kAllStations = 0xFF, kCiscoUnicast = 0x0F, kCiscoMulticast = 0x8F;
  ByteReader reader(frame);
  const std::uint8_t address = reader.peek();
  if (address == kCiscoUnicast || address == kCiscoMulticast) return withTypeAt(frame, 2, 4);
  if (address == kAllStations) reader.skip(2);
  const unsigned protocol = reader.peek() % 2 == 1 ? reader.u8() : reader.u16();  // one byte when it is compressed
  return {reader.position(), etherTypeOfPpp(protocol)};
}

}  // namespace

bool understandsLinkType(int linkType, bool decapsulate) {
  constexpr int kUnderstood[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW,        DLT_IPV4,   DLT_IPV6,
                                 DLT_NULL,   DLT_LOOP,      DLT_PPP,        DLT_PPP_SERIAL, DLT_C_HDLC, DLT_PPP_ETHER};
  constexpr int kTunnels = 4;  // the last ones
  const auto end = std::end(kUnderstood) - (decapsulate ? 0 : kTunnels);
  return std::find(std::begin(kUnderstood), end, linkType) != end;
}

std::uint16_t etherTypeOfPpp(unsigned protocol) {
  switch (protocol) {
    case 0x0021:
      return kEtherIpv4;
    case 0x0057:
      return kEtherIpv6;
    case 0x0281:
      return kEtherMpls;
    default:
      return 0;
  }
}

LinkHeader readLinkHeader(int linkType, std::span<const std::uint8_t> frame) {
  switch (linkType) {
    case DLT_LINUX_SLL:
      return withTypeAt(frame, 14, 16);
    case DLT_LINUX_SLL2:
      return withTypeAt(frame, 0, 20);
    case DLT_RAW:
    case DLT_IPV4:
    case DLT_IPV6:
      return {0, byVersion(frame, 0)};
    case DLT_NULL:  // an address family, with the byte order and the numbers of the machine that wrote the file
    case DLT_LOOP:
      return {4, byVersion(frame, 4)};
    case DLT_PPP:
    case DLT_PPP_SERIAL:
    case DLT_C_HDLC:
      return readPpp(frame);
    case DLT_PPP_ETHER:
      return {0, kEtherPppoeSession};
    default:
      return withTypeAt(frame, 12, 14);
  }
}

}  // namespace voip
