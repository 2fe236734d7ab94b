#include "network/Decapsulator.h"

#include <netinet/in.h>

#include <algorithm>

#include "network/ByteReader.h"
#include "network/EtherType.h"
#include "network/InternetChecksum.h"
#include "network/Ipv4.h"
#include "network/Ipv6.h"

namespace voip {

namespace {

constexpr int kIpInIp = 4;
constexpr int kIpv6InIp = 41;
constexpr int kGre = 47;
constexpr std::uint16_t kNothing = 0;  // no known type

bool isTag(std::uint16_t etherType) {
  return etherType == kEtherVlan || etherType == kEtherServiceVlan || etherType == kEtherOldQinQ;
}

bool hasRightHeaderChecksum(Octets packet) {
  const auto header = Ipv4Header::read(packet);
  return header && checksumOf(sumWords(packet.first(header->length))) == 0;
}

bool looksLikeIp(std::uint16_t etherType, Octets packet) {
  if (etherType == kEtherIpv4) return Ipv4Header::read(packet).has_value();
  return etherType == kEtherIpv6 && !packet.empty() && packet[0] >> 4 == 6;
}

/// True when the bytes are exactly one IPv6 packet.
bool isExactlyIpv6(Octets packet) {
  const auto header = Ipv6Header::read(packet);
  return header && !header->isJumbo && header->total == packet.size() && header->missing == 0;
}

/// Returns the type of the IP packet that an unreliable tunnel header promises, or kNothing for other bytes.
std::uint16_t provenIp(Octets packet) {
  if (packet.empty()) return kNothing;
  if (packet[0] >> 4 == 4) return hasRightHeaderChecksum(packet) ? kEtherIpv4 : kNothing;
  const auto header = Ipv6Header::read(packet);
  const bool isExact = header && (header->total == packet.size() || header->missing > 0);
  return isExact ? kEtherIpv6 : kNothing;
}

/// An Ethernet frame, with tags or without, that has an IP packet inside.
bool looksLikeEthernet(Octets frame) {
  ByteReader reader(frame);
  reader.skip(12);
  std::uint16_t type = reader.u16();
  while (reader.ok() && isTag(type)) {
    reader.skip(2);
    type = reader.u16();
  }
  return looksLikeIp(type, reader.rest());
}

/// Walks through a frame from the outermost to the innermost header. Each step removes a header and returns the
/// EtherType of the payload.
class Walk {
 public:
  Walk(Octets bytes, const NetworkOptions& options, int layers) : reader_(bytes), options_(options) {
    packet_.layers = layers;
  }

  std::optional<InnerPacket> from(const LinkHeader& start) {
    reader_.skip(start.length);
    for (std::uint16_t next = start.etherType; next != kNothing && reader_.ok();) next = step(next);
    return found_;
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
      case kEtherPpp:
        return ppp();  // GRE was counted as its layer
      case kEtherErspan:
        return erspan();  // GRE was counted as its layer
      case kEtherErspanIII:
        return erspanIII();
      default:
        return oneMore() ? tunnel(type) : kNothing;
    }
  }

  std::uint16_t tunnel(std::uint16_t type) {
    packet_.isTunnelled = true;
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

  bool oneMore() { return ++packet_.layers <= Decapsulator::kMaxLayers; }

  std::uint16_t ethernet() {
    reader_.skip(12);
    return reader_.u16();
  }

  std::uint16_t tags() {
    std::uint16_t type = kEtherVlan;
    while (reader_.ok() && isTag(type)) {
      reader_.skip(2);
      type = reader_.u16();
    }
    return type;
  }

  /// MPLS labels do not give the type of their payload: IP, or Ethernet with or without a control word (RFC 4448). The
  /// first bytes of a MAC address can look like any of them, so the first type that is consistent as a whole is taken.
  std::uint16_t labels() {
    constexpr std::size_t kControlWord = 4;
    while (reader_.ok() && (reader_.u32() & 0x100) == 0) {
    }
    const Octets rest = reader_.rest();
    const int version = reader_.peek() >> 4;
    if (version == 4 && hasRightHeaderChecksum(rest)) return kEtherIpv4;
    if (version == 6 && isExactlyIpv6(rest)) return kEtherIpv6;
    if (looksLikeEthernet(rest)) return ethernet();
    if (version == 0) reader_.skip(kControlWord);
    return version == 4 ? kEtherIpv4 : version == 6 ? kEtherIpv6 : ethernet();
  }

  std::uint16_t pppoe() {
    if (reader_.u16() != 0x1100) return kNothing;  // version 1, type 1, session data
    reader_.skip(2);
    reader_.limit(reader_.u16());
    return pppProtocol();
  }

  std::uint16_t pppProtocol() {
    const unsigned protocol = reader_.peek() % 2 == 1 ? reader_.u8() : reader_.u16();  // one byte when it is compressed
    return etherTypeOfPpp(protocol);
  }

  /// PPP in a tunnel, with or without the bytes of address and control.
  std::uint16_t ppp() {
    if (reader_.peek() == 0xFF) reader_.skip(2);
    const std::uint16_t type = pppProtocol();
    return type == provenIp(reader_.rest()) ? type : kNothing;
  }

  std::uint16_t ipv4() {
    const auto header = Ipv4Header::read(reader_.rest());
    if (!header) return kNothing;
    packet_.isIpv6 = false;
    find(header->total);
    if (header->isFragment()) return kNothing;
    reader_.limit(header->total);
    reader_.skip(header->length);
    return transport(header->protocol);
  }

  std::uint16_t ipv6() {
    const auto header = Ipv6Header::read(reader_.rest());
    if (!header) return kNothing;
    packet_.isIpv6 = true;
    if (options_.ipv6) find(header->total);
    if (header->isFragment() || header->isJumbo) return kNothing;
    reader_.limit(header->total);
    reader_.skip(header->length);
    return transport(header->protocol);
  }

  void find(std::size_t length) {
    packet_.offset = reader_.position();
    packet_.length = length;
    found_ = packet_;
  }

  std::uint16_t transport(unsigned protocol) {
    switch (protocol) {
      case IPPROTO_UDP:
        return enter(udp());
      case kGre:
        return enter(gre());
      case kIpInIp:
        return enter(kEtherIpv4);
      case kIpv6InIp:
        return enter(kEtherIpv6);
      default:
        return kNothing;
    }
  }

  /// Counts a tunnel over IP, unless its payload has no known type. Returns the type.
  std::uint16_t enter(std::uint16_t payload) {
    if (payload == kNothing || !oneMore()) return kNothing;
    packet_.isTunnelled = true;
    if (found_) found_->isTunnelled = true;
    return payload;
  }

  std::uint16_t udp() {
    const std::uint16_t source = reader_.u16(), destination = reader_.u16();
    const Tunnel tunnel = options_.tunnelPorts.between(source, destination);
    if (tunnel == Tunnel::kNone) return kNothing;
    reader_.skip(4);
    switch (tunnel) {
      case Tunnel::kVxlan:
        return vxlan();
      case Tunnel::kGeneve:
        return geneve();
      case Tunnel::kGtp:
        return gtp();
      case Tunnel::kL2tp:
        return l2tp();
      default:
        return tzsp();
    }
  }

  std::uint16_t gtp() {
    constexpr unsigned kUserData = 255;
    const unsigned flags = reader_.u8();
    if (flags >> 4 != 3 || reader_.u8() != kUserData) return kNothing;  // version 1, no other use of its format
    const std::size_t length = reader_.u16();
    reader_.skip(4);
    reader_.limit(length);
    if ((flags & 7) != 0) {
      reader_.skip(3);  // sequence number, N-PDU number
      bool isMore = reader_.u8() != 0 && (flags & 4) != 0;
      while (isMore && reader_.ok()) isMore = gtpExtension();
    }
    return provenIp(reader_.rest());
  }

  /// Returns true when another extension header follows.
  bool gtpExtension() {
    const std::size_t words = reader_.u8();
    reader_.skip(words * 4 - std::min(words * 4, std::size_t{2}));
    return reader_.u8() != 0 && words > 0;
  }

  std::uint16_t l2tp() {
    constexpr unsigned kLength = 0x4000, kSequence = 0x0800, kOffset = 0x0200, kPriority = 0x0100, kVersion = 2;
    const std::size_t start = reader_.position();
    const unsigned flags = reader_.u16();
    if ((flags & ~(kLength | kSequence | kOffset | kPriority)) != kVersion) return kNothing;  // control, other versions
    if ((flags & kLength) != 0) {
      const std::size_t length = reader_.u16(), before = reader_.position() - start;
      reader_.limit(length - std::min(length, before));
    }
    reader_.skip(4);  // tunnel, session
    if ((flags & kSequence) != 0) reader_.skip(4);
    if ((flags & kOffset) != 0) reader_.skip(reader_.u16());
    return ppp();
  }

  std::uint16_t tzsp() {
    constexpr unsigned kEthernet = 1, kPadding = 0, kEnd = 1;
    const unsigned version = reader_.u8(), type = reader_.u8();
    if (version != 1 || type > 1 || reader_.u16() != kEthernet) return kNothing;  // type: received, to be sent
    for (unsigned tag = reader_.u8(); reader_.ok(); tag = reader_.u8()) {
      if (tag == kEnd) return ethernet();
      if (tag != kPadding) reader_.skip(reader_.u8());
    }
    return kNothing;
  }

  std::uint16_t vxlan() {
    const bool hasNetwork = (reader_.u8() & 0x08) != 0;
    reader_.skip(7);
    return hasNetwork ? ethernet() : kNothing;
  }

  std::uint16_t geneve() {
    const unsigned versionAndLength = reader_.u8();
    reader_.skip(1);
    const std::uint16_t type = reader_.u16();
    reader_.skip(4 + (versionAndLength & 0x3F) * std::size_t{4});
    if (versionAndLength >> 6 != 0) return kNothing;
    return type == kEtherBridged ? ethernet() : type;
  }

  std::uint16_t gre() {
    const unsigned flags = reader_.u16();
    const std::uint16_t type = reader_.u16();
    if (type == kEtherPpp && (flags & 0x4007) == 1) return pptp(flags);
    if ((flags & 0x4007) != 0) return kNothing;  // source routes, or another version
    if ((flags & 0x8000) != 0) reader_.skip(4);  // checksum
    if ((flags & 0x2000) != 0) reader_.skip(4);  // key
    const bool hasSequence = (flags & 0x1000) != 0;
    if (hasSequence) reader_.skip(4);
    // Type I of ERSPAN has neither a sequence number nor an ERSPAN header.
    return type == kEtherBridged || (type == kEtherErspan && !hasSequence) ? ethernet() : type;
  }

  std::uint16_t pptp(unsigned flags) {
    const std::size_t length = reader_.u16();
    reader_.skip(2);                                                                    // call
    reader_.skip(((flags & 0x1000) != 0 ? 4U : 0U) + ((flags & 0x80) != 0 ? 4U : 0U));  // sequence, acknowledgement
    reader_.limit(length);
    return kEtherPpp;
  }

  std::uint16_t erspan() {
    const bool isTypeII = reader_.u8() >> 4 == 1;
    reader_.skip(7);
    return isTypeII ? ethernet() : kNothing;
  }

  std::uint16_t erspanIII() {
    const bool isTypeIII = reader_.u8() >> 4 == 2;
    reader_.skip(9);
    const unsigned flags = reader_.u16();
    if ((flags & 1) != 0) reader_.skip(8);  // the optional subheader
    if (!isTypeIII) return kNothing;
    const unsigned frameType = flags >> 10 & 0x1F;
    if (frameType == 0) return ethernet();
    return frameType == 2 ? (reader_.peek() >> 4 == 6 ? kEtherIpv6 : kEtherIpv4) : kNothing;
  }

  ByteReader reader_;
  const NetworkOptions& options_;
  InnerPacket packet_;
  std::optional<InnerPacket> found_;
};

}  // namespace

std::optional<InnerPacket> Decapsulator::unwrap(Octets bytes, const LinkHeader& from, int layers) const {
  return Walk(bytes, options_, layers).from(from);
}

}  // namespace voip
