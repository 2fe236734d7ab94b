#include "NetworkStack.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstring>

#include "EtherType.h"

NetworkStack::NetworkStack(const Settings& settings, NetworkSink& takesItems, Statistics& counts)
    : sink(takesItems), statistics(counts), decapsulate(settings.decapsulate) {
  if (settings.dropDuplicates) duplicates.emplace(statistics);
  if (settings.reassembleFragments) fragments.emplace(statistics);
  if (settings.reassembleTcp) streams.emplace(sink, statistics);
}

void NetworkStack::takeFrame(std::span<std::uint8_t> frame, int linkType, std::int64_t time) {
  const LinkHeader link = readLinkHeader(linkType, frame);
  InnerPacket packet;
  if (decapsulate) packet = Decapsulator::unwrap(frame, link).value_or(packet);
  if (packet.layers == 0) {
    packet.offset = plainNetworkOffset(link);
    packet.length = frame.size() - std::min(frame.size(), packet.offset);  // padding included
  }
  takePacket({frame, true}, packet, time);
}

void NetworkStack::takePacket(const Bytes& from, const InnerPacket& packet, std::int64_t time) {
  const auto frame = from.bytes;
  const auto bytes = frame.subspan(std::min(packet.offset, frame.size()), packet.length);
  const auto header = Ipv4Header::read(bytes);
  if (!header) {
    handOn(from, packet);
    return;
  }
  const auto exact = bytes.first(header->total);
  if (duplicates && duplicates->seen(*header, exact, time)) {
    statistics.duplicatesDropped.add();
  } else if (fragments && header->isFragment()) {
    takeFragment(*header, exact, packet.layers, time);
  } else if (streams && header->protocol == IPPROTO_TCP && !header->isFragment()) {
    if (!takeSegment(*header, exact, time)) handOn(from, packet);
  } else if (packet.tunnelled && header->protocol != IPPROTO_UDP && header->protocol != IPPROTO_TCP) {
    // A filter sees the tunnel only and cannot leave it out, so it costs no line in the log.
    statistics.otherDropped.add();
  } else {
    handOn(from, packet);
  }
}

void NetworkStack::takeFragment(const Ipv4Header& header, std::span<const std::uint8_t> bytes, int layers,
                                std::int64_t time) {
  auto datagram = fragments->add(header, bytes, time);
  if (!datagram) {
    statistics.fragmentsHeld.add();
    return;
  }
  // It is no fragment now, so only what a layer less holds can be one again: this ends.
  InnerPacket packet{0, datagram->packet.size(), layers, layers > 0};
  if (decapsulate) packet = Decapsulator::unwrap(datagram->packet, {0, kEtherIpv4}, layers).value_or(packet);
  takePacket({datagram->packet, false}, packet, time);
}

/// False when the segment is to go the plain way, because of a header that makes no sense.
bool NetworkStack::takeSegment(const Ipv4Header& header, std::span<const std::uint8_t> bytes, std::int64_t time) {
  const auto segment = TcpSegment::read(bytes.subspan(header.length));
  if (!segment) return false;
  const StreamEnds ends{header.source, header.destination, segment->sourcePort, segment->destinationPort};
  (streams->follow(ends, *segment, time) ? statistics.segmentsFollowed : statistics.tcpDropped).add();
  return true;
}

void NetworkStack::handOn(const Bytes& from, const InnerPacket& packet) {
  const auto frame = from.bytes;
  const std::size_t end = std::min(frame.size(), packet.offset + packet.length);
  // Nobody is to take the trailer of an outer frame for a part of the packet.
  std::memset(frame.data() + end, 0, std::min(frame.size() - end, FragmentReassembler::kSlack));
  sink.takePacket(frame.first(end), packet.offset, from.areCaptured);
}
