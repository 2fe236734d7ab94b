#include "network/Ipv6.h"

#include <netinet/in.h>

#include "network/ByteReader.h"

namespace voip {

namespace {

bool isExtension(unsigned protocol) {
  return protocol == IPPROTO_HOPOPTS || protocol == IPPROTO_ROUTING || protocol == IPPROTO_DSTOPTS ||
         protocol == IPPROTO_AH || protocol == IPPROTO_FRAGMENT;
}

/// Consumes one extension header and returns the type of the header after it.
std::uint8_t readExtension(ByteReader& reader, Ipv6Header& header) {
  const std::uint8_t next = reader.u8();
  const std::size_t length = reader.u8();
  if (header.protocol == IPPROTO_FRAGMENT) {
    const unsigned field = reader.u16();
    header.fragmentOffset = field & 0xFFF8;
    header.moreFragments = (field & 1) != 0;
    header.id = reader.u32();
  } else {
    reader.skip(header.protocol == IPPROTO_AH ? (length + 2) * 4 - 2 : length * 8 + 6);
  }
  return next;
}

}  // namespace

std::optional<Ipv6Header> Ipv6Header::read(Octets bytes) {
  ByteReader reader(bytes);
  if (reader.u32() >> 28 != 6) return {};
  Ipv6Header header;
  const std::size_t payload = reader.u16();
  header.protocol = reader.u8();
  reader.skip(1 + 2 * IpAddress::kSize);
  if (!reader.ok()) return {};
  header.source = IpAddress::read(bytes.data() + 8);
  header.destination = IpAddress::read(bytes.data() + 24);
  if (header.source.isIpv4() || header.destination.isIpv4()) return {};
  header.isJumbo = payload == 0 && header.protocol == IPPROTO_HOPOPTS;
  // A packet that the network card has not segmented yet may have the length 0.
  if (payload > 0) reader.limit(payload);
  header.total = kFixed + reader.left();
  header.missing = kFixed + payload > header.total ? kFixed + payload - header.total : 0;
  for (int count = 0; !header.isFragment() && !header.isJumbo && isExtension(header.protocol); ++count) {
    if (count == kMostExtensions) return {};
    header.protocol = readExtension(reader, header);
  }
  if (!reader.ok()) return {};
  header.length = reader.position();
  return header;
}

}  // namespace voip
