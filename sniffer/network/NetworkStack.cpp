#include "network/NetworkStack.h"

#include <netinet/in.h>
#include <pcap/dlt.h>

#include <algorithm>
#include <cstring>

#include "base/FrameLimits.h"
#include "network/EtherType.h"
#include "network/PlainPacket.h"

namespace voip {

namespace {

/// Ends a frame at this offset. Otherwise padding or the trailer of an outer frame would count as a part of the packet.
std::span<std::uint8_t> endAt(std::span<std::uint8_t> frame, std::size_t offset) {
  const std::size_t end = std::min(frame.size(), offset);
  std::memset(frame.data() + end, 0, std::min(frame.size() - end, kFrameSlack));
  return frame.first(end);
}

LinkHeader ethernetHeader(std::span<const std::uint8_t> frame) {
  constexpr std::size_t kLength = 14, kType = 12;
  const std::uint8_t* type = frame.data() + kType;  // in the slack when the frame is too short
  return {kLength, static_cast<std::uint16_t>(type[0] << 8 | type[1])};
}

}  // namespace

NetworkStack::NetworkStack(const NetworkOptions& options, NetworkSink& sink, const NetworkLimits& limits)
    : sink_(sink),
      options_(options),
      isPlain_(!options.decapsulate && !options.dropDuplicates && !options.reassembleFragments &&
               !options.reassembleTcp),
      decapsulator_(options_) {
  if (options.dropDuplicates) duplicates_.emplace(sink, limits.duplicateBuckets);
  if (options.reassembleFragments) fragments_.emplace(sink, limits);
  if (options.reassembleTcp) streams_.emplace(sink, limits);
}

void NetworkStack::takePlainFrame(std::span<std::uint8_t> frame) {
  takeIp(frame, plainNetworkOffset(ethernetHeader(frame)), true, sink_);
}

void NetworkStack::takeFrame(std::span<std::uint8_t> frame, FrameSource source, std::int64_t captured,
                             std::int64_t now) {
  if (!isPlain_ || source.linkType != DLT_EN10MB) {
    takeByStages(frame, source, captured, now);
  } else if (options_.ipv6 && isPlainIpv6(ethernetHeader(frame), frame)) {
    takePlainIpv6Frame(frame, {captured, now, source.zone});
  } else {
    takePlainFrame(frame);
  }
}

// Not inlined, as takeByStages().
void NetworkStack::takePlainIpv6Frame(std::span<std::uint8_t> frame, const Arrival& arrival) {
  const std::size_t offset = plainNetworkOffset(ethernetHeader(frame));
  const std::size_t length = frame.size() - std::min(frame.size(), offset);
  takeIpv6Packet({frame, true}, {.offset = offset, .length = length, .isIpv6 = true}, arrival);
}

// Not inlined: a plain frame would save the registers that only the stages need.
void NetworkStack::takeByStages(std::span<std::uint8_t> frame, FrameSource source, std::int64_t captured,
                                std::int64_t now) {
  const LinkHeader link =
      source.linkType == DLT_EN10MB ? ethernetHeader(frame) : readLinkHeader(source.linkType, frame);
  InnerPacket packet;
  if (options_.decapsulate) {
    if (const auto inner = decapsulator_.unwrap(frame, link)) packet = *inner;
  }
  if (packet.layers == 0) {
    packet.offset = plainNetworkOffset(link);
    packet.length = frame.size() - std::min(frame.size(), packet.offset);  // padding included
    packet.isIpv6 = options_.ipv6 && isPlainIpv6(link, frame);
  }
  takePacket({frame, true}, packet, {captured, now, source.zone});
}

void NetworkStack::takePacket(const Bytes& from, const InnerPacket& packet, const Arrival& arrival) {
  if (packet.isIpv6) {
    takeIpv6Packet(from, packet, arrival);
    return;
  }
  const auto frame = from.bytes;
  const auto bytes = frame.subspan(std::min(packet.offset, frame.size()), packet.length);
  const auto header = Ipv4Header::read(bytes);
  if (!header) {
    takeAsItIs(from, packet);
    return;
  }
  const auto exact = bytes.first(header->total);
  if (duplicates_ && duplicates_->seen(*header, exact, arrival.captured, arrival.now)) {
    sink_.count(NetworkCount::kDuplicatesDropped);
  } else if (fragments_ && header->isFragment()) {
    takeFragment(*header, exact, packet, arrival);
  } else if (streams_ && header->protocol == IPPROTO_TCP && !header->isFragment()) {
    if (!takeSegment(*header, exact, arrival)) takeAsItIs(from, packet);
  } else if (packet.isTunnelled && header->protocol != IPPROTO_UDP && header->protocol != IPPROTO_TCP) {
    // A capture filter sees only the tunnel and cannot exclude this packet, so it causes no log line.
    sink_.count(NetworkCount::kOtherDropped);
  } else {
    takeAsItIs(from, packet);
  }
}

void NetworkStack::takeIpv6Packet(const Bytes& from, const InnerPacket& packet, const Arrival& arrival) {
  const auto frame = from.bytes;
  const auto bytes = frame.subspan(std::min(packet.offset, frame.size()), packet.length);
  auto header = Ipv6Header::read(bytes);
  if (!header || header->isJumbo) {
    refuseIpv6(header ? NetworkCount::kJumboPayloads : NetworkCount::kIpv6Malformed);
    return;
  }
  if (header->isLinkLocal()) header->zone = arrival.zone;
  const auto exact = bytes.first(header->total);
  if (duplicates_ && duplicates_->seen(*header, exact, arrival.captured, arrival.now)) {
    sink_.count(NetworkCount::kDuplicatesDropped);
  } else if (fragments_ && header->isFragment()) {
    takeFragment(*header, exact, packet, arrival);
  } else if (!streams_ || header->protocol != IPPROTO_TCP || header->isFragment() ||
             !takeSegment(*header, exact, arrival)) {
    takeAsItIs(from, packet, *header);
  }
}

void NetworkStack::refuseIpv6(NetworkCount why) {
  sink_.count(NetworkCount::kOtherDropped);
  sink_.count(why);
}

template <class Header>
void NetworkStack::takeFragment(const Header& header, Octets bytes, const InnerPacket& packet, const Arrival& arrival) {
  auto datagram = fragments_->add(header, bytes, arrival.now);
  if (!datagram) {
    sink_.count(NetworkCount::kFragmentsHeld);
    return;
  }
  // The recursion ends: the datagram is no fragment, so only a packet in a further layer can be one.
  InnerPacket whole{0, datagram->packet.size(), packet.layers, packet.isTunnelled, packet.isIpv6};
  if (options_.decapsulate) {
    const LinkHeader network{0, packet.isIpv6 ? kEtherIpv6 : kEtherIpv4};
    whole = decapsulator_.unwrap(datagram->packet, network, packet.layers).value_or(whole);
    whole.isTunnelled |= packet.isTunnelled;
  }
  takePacket({datagram->packet, false}, whole, arrival);
}

/// Returns false when the header is invalid, so that the segment takes the plain path.
template <class Header>
bool NetworkStack::takeSegment(const Header& header, Octets bytes, const Arrival& arrival) {
  const auto segment = TcpSegment::read(bytes.subspan(header.length), header.missing);
  if (!segment) return false;
  const FlowEnds ends{header.source, header.destination, segment->sourcePort, segment->destinationPort, header.zone};
  const bool isFollowed = streams_->follow(ends, *segment, arrival.captured, arrival.now);
  sink_.count(isFollowed ? NetworkCount::kSegmentsFollowed : NetworkCount::kTcpDropped);
  return true;
}

bool NetworkStack::expire(std::int64_t now) {
  if (fragments_) fragments_->expire(now);
  return streams_ && streams_->expire(now);
}

bool NetworkStack::flush() {
  return streams_ && streams_->flush();
}

void NetworkStack::takeAsItIs(const Bytes& from, const InnerPacket& packet) {
  takeIp(endAt(from.bytes, packet.offset + packet.length), packet.offset, from.areCaptured, sink_);
}

void NetworkStack::takeAsItIs(const Bytes& from, const InnerPacket& packet, const Ipv6Header& header) {
  const auto frame = endAt(from.bytes, packet.offset + header.total);
  const std::size_t at = packet.offset + header.length;
  const FlowEnds ends{header.source, header.destination, 0, 0, header.zone};
  if (header.fragmentOffset == 0 && header.protocol == IPPROTO_UDP) {
    takeUdp(frame, at, ends, from.areCaptured, sink_);
  } else if (header.fragmentOffset == 0 && header.protocol == IPPROTO_TCP) {
    takeTcp(frame, at, ends, sink_);
  } else {
    sink_.count(NetworkCount::kOtherDropped);  // no log line: each neighbour discovery would cause one
  }
}

}  // namespace voip
