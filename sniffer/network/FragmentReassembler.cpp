#include "network/FragmentReassembler.h"

#include <endian.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "base/FrameLimits.h"
#include "network/InternetChecksum.h"

namespace voip {

namespace {

constexpr int kMostExpired = 32;  // dropped by one call, so that no frame is delayed by thousands

void store16(std::uint8_t* at, std::size_t value) {
  at[0] = static_cast<std::uint8_t>(value >> 8);
  at[1] = static_cast<std::uint8_t>(value);
}

/// Returns false when the packet is UDP with a wrong checksum (RFC 768). Accepts a checksum that was not computed: 0,
/// when the sender omits it, and the sum of the pseudo header, when the packet was captured before the network card
/// computed it.
bool hasRightChecksum(Octets packet) {
  constexpr std::size_t kUdpLength = 8, kProtocol = 9, kAddresses = 12;
  if (packet[kProtocol] != IPPROTO_UDP) return true;
  const Octets udp = packet.subspan((packet[0] & 0x0F) * std::size_t{4});
  if (udp.size() < kUdpLength || (udp[6] == 0 && udp[7] == 0)) return true;
  const auto length = static_cast<std::size_t>(udp[4] << 8 | udp[5]);
  if (length < kUdpLength || length > udp.size()) return false;
  const std::uint64_t pseudoHeader = htobe16(IPPROTO_UDP) + std::uint64_t{htobe16(static_cast<std::uint16_t>(length))};
  const std::uint64_t partial = sumWords(packet.subspan(kAddresses, 8), pseudoHeader);
  const std::uint16_t inPacket = static_cast<std::uint16_t>(udp[6] << 8 | udp[7]);
  const bool isLeftToCard = inPacket == static_cast<std::uint16_t>(~checksumOf(partial));
  return isLeftToCard || checksumOf(sumWords(udp.first(length), partial)) == 0;
}

}  // namespace

bool FragmentReassembler::Partial::isWhole() const {
  return total > 0 && headerLength > 0 && blocks == (total + kBlock - 1) / kBlock &&
         headerLength + total <= kMaxPayload;
}

std::uint64_t FragmentReassembler::hashOf(const Key& key) const {
  std::array<std::uint8_t, 11> octets;
  std::memcpy(octets.data(), &key.source, 4);
  std::memcpy(octets.data() + 4, &key.destination, 4);
  std::memcpy(octets.data() + 8, &key.id, 2);
  octets[10] = key.protocol;
  return hash_(octets);
}

std::optional<FragmentReassembler::Datagram> FragmentReassembler::add(const Ipv4Header& header, Octets packet,
                                                                      std::int64_t now) {
  expire(now);
  const std::size_t length = packet.size() - header.length;
  if (length == 0 || header.missing > 0 || (header.moreFragments && length % kBlock != 0) ||
      header.length + header.fragmentOffset + length > kMaxPayload) {
    counters_.count(NetworkCount::kFragmentsMalformed);
    return {};
  }
  Entry& entry = entryFor({header.source, header.destination, header.id, header.protocol}, now);
  Partial& partial = *entry.partial;
  if (partial.isSpoilt) return {};
  if (!merge(partial, header, packet)) {
    counters_.count(NetworkCount::kDatagramsContradictory);
    spoil(partial);
    return {};
  }
  if (!partial.isWhole()) {
    makeRoom();
    return {};
  }
  Datagram datagram = finish(partial);
  drop(entry);
  if (!hasRightChecksum(datagram.packet)) {
    counters_.count(NetworkCount::kDatagramsMixed);
    return {};
  }
  counters_.count(NetworkCount::kDatagramsReassembled);
  return datagram;
}

FragmentReassembler::Entry& FragmentReassembler::entryFor(const Key& key, std::int64_t now) {
  const std::uint64_t hashed = hashOf(key);
  if (Entry* entry = partials_.find(key, hashed)) return *entry;
  if (partials_.isFull()) {
    counters_.count(NetworkCount::kDatagramsDisplaced);
    drop(*partials_.oldest());
  }
  Entry& entry = partials_.insert(key, hashed);
  entry.partial = std::make_unique<Partial>();
  entry.partial->since = now;
  memory_ += sizeof(Partial);
  return entry;
}

/// Returns false when the fragment contradicts others of its datagram.
bool FragmentReassembler::merge(Partial& partial, const Ipv4Header& header, Octets packet) {
  const auto payload = packet.subspan(header.length);
  const std::size_t end = header.fragmentOffset + payload.size();
  if (partial.total > 0 && (end > partial.total || (!header.moreFragments && end != partial.total))) return false;
  if (!header.moreFragments) {
    if (end < partial.end) return false;
    partial.total = end;
  }
  partial.end = std::max(partial.end, end);
  if (partial.bytes.size() < kMaxHeader + partial.end) {
    memory_ += kMaxHeader + partial.end - partial.bytes.size();
    partial.bytes.resize(kMaxHeader + partial.end);
  }
  for (std::size_t at = 0; at < payload.size(); at += kBlock) {
    const auto block = payload.subspan(at, std::min(kBlock, payload.size() - at));
    if (!mergeBlock(partial, header.fragmentOffset + at, block)) return false;
  }
  if (header.fragmentOffset == 0) {
    partial.headerLength = header.length;
    std::memcpy(partial.bytes.data() + kMaxHeader - header.length, packet.data(), header.length);
  }
  return true;
}

bool FragmentReassembler::mergeBlock(Partial& partial, std::size_t at, Octets block) {
  std::uint8_t* place = partial.bytes.data() + kMaxHeader + at;
  const std::size_t number = at / kBlock;
  if (partial.present[number]) return std::memcmp(place, block.data(), block.size()) == 0;
  partial.present[number] = true;
  ++partial.blocks;
  std::memcpy(place, block.data(), block.size());
  return true;
}

void FragmentReassembler::spoil(Partial& partial) {
  partial.isSpoilt = true;
  memory_ -= partial.bytes.size();
  partial.bytes = {};
}

FragmentReassembler::Datagram FragmentReassembler::finish(Partial& partial) {
  Datagram datagram;
  memory_ -= partial.bytes.size();
  datagram.memory = std::move(partial.bytes);
  partial.bytes.clear();
  datagram.memory.resize(kMaxHeader + partial.total + kFrameSlack);
  datagram.packet =
      std::span(datagram.memory).subspan(kMaxHeader - partial.headerLength, partial.headerLength + partial.total);
  std::uint8_t* header = datagram.packet.data();
  store16(header + 2, datagram.packet.size());
  store16(header + 6, 0);
  store16(header + 10, 0);
  store16(header + 10, checksumOf(sumWords(datagram.packet.first(partial.headerLength))));
  return datagram;
}

void FragmentReassembler::makeRoom() {
  while (memory_ > limits_.datagramMemory) {
    counters_.count(NetworkCount::kDatagramsDisplaced);
    drop(*partials_.oldest());
  }
}

void FragmentReassembler::expire(std::int64_t now) {
  for (int i = 0; i < kMostExpired; ++i) {
    Entry* oldest = partials_.oldest();
    if (oldest == nullptr || now - oldest->partial->since <= limits_.datagramPatience) return;
    if (!oldest->partial->isSpoilt) counters_.count(NetworkCount::kDatagramsTimedOut);
    drop(*oldest);
  }
}

void FragmentReassembler::drop(Entry& entry) {
  memory_ -= sizeof(Partial) + entry.partial->bytes.size();
  partials_.erase(entry);
}

}  // namespace voip
