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

}  // namespace

bool understandsLinkType(int linkType) {
  constexpr int kUnderstood[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW,
                                 DLT_IPV4,   DLT_IPV6,      DLT_NULL,       DLT_LOOP};
  return std::find(std::begin(kUnderstood), std::end(kUnderstood), linkType) != std::end(kUnderstood);
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
    default:
      return withTypeAt(frame, 12, 14);
  }
}

}  // namespace voip
