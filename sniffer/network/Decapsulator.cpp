#include "network/Decapsulator.h"

#include <netinet/in.h>

#include "network/ByteReader.h"
#include "network/EtherType.h"
#include "network/Ipv4.h"

namespace voip {

namespace {

constexpr int kIpInIp = 4;
constexpr int kIpv6InIp = 41;
constexpr int kGre = 47;
constexpr int kVxlanPort = 4789;
constexpr int kGenevePort = 6081;
constexpr std::uint16_t kNothing = 0;  // nothing in there that is known

/// One walk from the outside in. Each step takes a header off and answers what comes next, as an EtherType.
class Walk {
 public:
  Walk(std::span<const std::uint8_t> all, int layers) : bytes(all), reader(all) { packet.layers = layers; }

  std::optional<InnerPacket> from(const LinkHeader& start) {
    reader.skip(start.length);
    for (std::uint16_t next = start.etherType; next != kNothing && reader.ok();) next = step(next);
    return found;
  }

 private:
  std::uint16_t step(std::uint16_t type) {
    switch (type) {
      case kEtherIpv4:
        return ipv4();
      case kEtherIpv6:
        return ipv6();
      case kEtherVlan:
      case kEtherServiceVlan:
      case kEtherOldQinQ:
        return oneMore() ? tags() : kNothing;
      case kEtherErspan:
        return erspan();  // GRE has been counted for it
      case kEtherErspanIII:
        return erspanIII();
      default:
        return oneMore() ? tunnel(type) : kNothing;
    }
  }

  std::uint16_t tunnel(std::uint16_t type) {
    packet.tunnelled = true;
    switch (type) {
      case kEtherMpls:
      case kEtherMplsMulticast:
        return labels();
      case kEtherPppoeSession:
        return pppoe();
      case kEtherBridged:
        return ethernet();
      default:
        return kNothing;
    }
  }

  bool oneMore() { return ++packet.layers <= Decapsulator::kMaxLayers; }

  std::uint16_t ethernet() {
    reader.skip(12);
    return reader.u16();
  }

  std::uint16_t tags() {
    std::uint16_t type = kEtherVlan;
    while (reader.ok() && (type == kEtherVlan || type == kEtherServiceVlan || type == kEtherOldQinQ)) {
      reader.skip(2);
      type = reader.u16();
    }
    return type;
  }

  /// Labels do not tell what they carry: IP, or Ethernet with a control word in front (RFC 4448) or without.
  std::uint16_t labels() {
    while (reader.ok() && (reader.u32() & 0x100) == 0) {
    }
    const int first = reader.peek() >> 4;
    if (first == 4) return kEtherIpv4;
    if (first == 6) return kEtherIpv6;
    if (first == 0) reader.skip(4);
    return ethernet();
  }

  std::uint16_t pppoe() {
    if (reader.u16() != 0x1100) return kNothing;  // version 1, type 1, session data
    reader.skip(2);
    reader.limit(reader.u16());
    const unsigned protocol = reader.peek() % 2 == 1 ? reader.u8() : reader.u16();  // one octet when it is compressed
    if (protocol == 0x0021) return kEtherIpv4;
    if (protocol == 0x0057) return kEtherIpv6;
    return protocol == 0x0281 ? kEtherMpls : kNothing;
  }

  std::uint16_t ipv4() {
    const auto header = Ipv4Header::read(reader.rest());
    if (!header) return kNothing;
    packet.offset = reader.position();
    packet.length = header->total;
    found = packet;
    if (header->isFragment()) return kNothing;
    reader.limit(header->total);
    reader.skip(header->length);
    return transport(header->protocol);
  }

  std::uint16_t ipv6() {
    if (reader.u32() >> 28 != 6) return kNothing;
    const std::uint16_t length = reader.u16();
    unsigned protocol = reader.u8();
    reader.skip(1 + 2 * 16);
    if (length > 0) reader.limit(length);
    while (reader.ok() && (protocol == IPPROTO_HOPOPTS || protocol == IPPROTO_ROUTING || protocol == IPPROTO_DSTOPTS)) {
      protocol = reader.u8();
      reader.skip(reader.u8() * std::size_t{8} + 6);
    }
    return transport(protocol);
  }

  std::uint16_t transport(unsigned protocol) {
    if (protocol != kIpInIp && protocol != kIpv6InIp && protocol != kGre && protocol != IPPROTO_UDP) return kNothing;
    const std::uint16_t inside = protocol == IPPROTO_UDP ? udp() : protocol == kGre ? gre() : kEtherIpv4;
    if (inside == kNothing || !oneMore()) return kNothing;
    packet.tunnelled = true;
    if (found) found->tunnelled = true;
    return protocol == kIpv6InIp ? kEtherIpv6 : inside;
  }

  std::uint16_t udp() {
    reader.skip(2);
    const int port = reader.u16();
    reader.skip(4);
    return port == kVxlanPort ? vxlan() : port == kGenevePort ? geneve() : kNothing;
  }

  std::uint16_t vxlan() {
    const bool hasNetwork = (reader.u8() & 0x08) != 0;
    reader.skip(7);
    return hasNetwork ? ethernet() : kNothing;
  }

  std::uint16_t geneve() {
    const unsigned versionAndLength = reader.u8();
    reader.skip(1);
    const std::uint16_t type = reader.u16();
    reader.skip(4 + (versionAndLength & 0x3F) * std::size_t{4});
    if (versionAndLength >> 6 != 0) return kNothing;
    return type == kEtherBridged ? ethernet() : type;
  }

  std::uint16_t gre() {
    const unsigned flags = reader.u16();
    const std::uint16_t type = reader.u16();
    if ((flags & 0x4007) != 0) return kNothing;  // source routes, or another version
    if ((flags & 0x8000) != 0) reader.skip(4);   // checksum
    if ((flags & 0x2000) != 0) reader.skip(4);   // key
    const bool hasSequence = (flags & 0x1000) != 0;
    if (hasSequence) reader.skip(4);
    // Type I of ERSPAN has neither a sequence number nor a header of its own.
    return type == kEtherBridged || (type == kEtherErspan && !hasSequence) ? ethernet() : type;
  }

  std::uint16_t erspan() {
    const bool isTypeII = reader.u8() >> 4 == 1;
    reader.skip(7);
    return isTypeII ? ethernet() : kNothing;
  }

  std::uint16_t erspanIII() {
    const bool isTypeIII = reader.u8() >> 4 == 2;
    reader.skip(9);
    const unsigned flags = reader.u16();
    if ((flags & 1) != 0) reader.skip(8);  // the optional subheader
    if (!isTypeIII) return kNothing;
    const unsigned frameType = flags >> 10 & 0x1F;
    if (frameType == 0) return ethernet();
    return frameType == 2 ? (reader.peek() >> 4 == 6 ? kEtherIpv6 : kEtherIpv4) : kNothing;
  }

  std::span<const std::uint8_t> bytes;
  ByteReader reader;
  InnerPacket packet;
  std::optional<InnerPacket> found;
};

}  // namespace

std::optional<InnerPacket> Decapsulator::unwrap(std::span<const std::uint8_t> bytes, const LinkHeader& from,
                                                int layers) {
  return Walk(bytes, layers).from(from);
}

}  // namespace voip
