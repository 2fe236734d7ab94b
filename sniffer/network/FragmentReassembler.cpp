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

std::uint8_t versionOf(Octets packet) {
  return packet[0] >> 4;
}

/// Returns the length field of a packet with this header and payload. That of IPv6 does not count the header.
std::size_t lengthField(Octets header, std::size_t payload) {
  return versionOf(header) == 6 ? payload : header.size() + payload;
}

/// Returns false when the datagram is UDP with a wrong checksum (RFC 768). Accepts a checksum that was not computed: 0,
/// when the sender omits it, and the sum of the pseudo header, when the packet was captured before the network card
/// computed it.
bool hasRightChecksum(Octets udp, Octets addresses) {
  constexpr std::size_t kUdpLength = 8;
  if (udp.size() < kUdpLength || (udp[6] == 0 && udp[7] == 0)) return true;
  const auto length = static_cast<std::size_t>(udp[4] << 8 | udp[5]);
  if (length < kUdpLength || length > udp.size()) return false;
  const std::uint64_t pseudoHeader = htobe16(IPPROTO_UDP) + std::uint64_t{htobe16(static_cast<std::uint16_t>(length))};
  const std::uint64_t partial = sumWords(addresses, pseudoHeader);
  const std::uint16_t inPacket = static_cast<std::uint16_t>(udp[6] << 8 | udp[7]);
  const bool isLeftToCard = inPacket == static_cast<std::uint16_t>(~checksumOf(partial));
  return isLeftToCard || checksumOf(sumWords(udp.first(length), partial)) == 0;
}

/// As above, for a reassembled packet. Extension headers of IPv6 can replace addresses of the pseudo header, so a
/// datagram after one counts as correct.
bool hasRightChecksum(Octets packet) {
  if (versionOf(packet) == 4) {
    constexpr std::size_t kProtocol = 9, kAddresses = 12;
    const std::size_t length = (packet[0] & 0x0F) * std::size_t{4};
    return packet[kProtocol] != IPPROTO_UDP || hasRightChecksum(packet.subspan(length), packet.subspan(kAddresses, 8));
  }
  constexpr std::size_t kProtocol = 6, kAddresses = 8;
  return packet[kProtocol] != IPPROTO_UDP ||
         hasRightChecksum(packet.subspan(Ipv6Header::kFixed), packet.subspan(kAddresses, 2 * IpAddress::kSize));
}

}  // namespace

bool FragmentReassembler::Partial::isWhole() const {
  if (total == 0 || headerLength == 0 || blocks != (total + kBlock - 1) / kBlock) return false;
  return lengthField(Octets(bytes).subspan(kMaxHeader - headerLength, headerLength), total) <= kMaxLength;
}

std::uint64_t FragmentReassembler::hashOf(const Key& key) const {
  if (key.source.isIpv4()) {
    const std::uint32_t numbers[] = {key.source.ipv4(), key.destination.ipv4(), key.id << 8 | key.protocol};
    std::array<std::uint8_t, sizeof numbers> octets;
    std::memcpy(octets.data(), numbers, sizeof numbers);
    return hash_(octets);
  }
  std::array<std::uint8_t, 2 * IpAddress::kSize + sizeof key.id> octets;
  key.source.write(octets.data());
  key.destination.write(octets.data() + IpAddress::kSize);
  std::memcpy(octets.data() + 2 * IpAddress::kSize, &key.id, sizeof key.id);
  return hash_(octets);
}

std::optional<FragmentReassembler::Datagram> FragmentReassembler::add(const Ipv4Header& header, Octets packet,
                                                                      std::int64_t now) {
  return add({{header.source, header.destination, header.id, header.protocol},
              packet.first(header.length),
              packet.subspan(header.length),
              header.fragmentOffset,
              !header.moreFragments,
              header.missing > 0},
             now);
}

std::optional<FragmentReassembler::Datagram> FragmentReassembler::add(const Ipv6Header& header, Octets packet,
                                                                      std::int64_t now) {
  constexpr std::size_t kNextHeader = 6;
  std::array<std::uint8_t, Ipv6Header::kFixed> fixed;
  std::memcpy(fixed.data(), packet.data(), fixed.size());
  fixed[kNextHeader] = header.protocol;
  auto datagram = add({{header.source, header.destination, header.id, 0, header.zone},
                       fixed,
                       packet.subspan(header.length),
                       header.fragmentOffset,
                       !header.moreFragments,
                       header.missing > 0},
                      now);
  if (!datagram) return {};
  // A fragment in a fragment could be reassembled again and again.
  const auto whole = Ipv6Header::read(datagram->packet);
  if (whole && whole->isFragment()) {
    counters_.count(NetworkCount::kFragmentsMalformed);
    return {};
  }
  return datagram;
}

std::optional<FragmentReassembler::Datagram> FragmentReassembler::add(const Fragment& fragment, std::int64_t now) {
  expire(now);
  const std::size_t length = fragment.payload.size();
  if (length == 0 || fragment.isCut || (!fragment.isLast && length % kBlock != 0) ||
      lengthField(fragment.header, fragment.offset + length) > kMaxLength) {
    counters_.count(NetworkCount::kFragmentsMalformed);
    return {};
  }
  Entry& entry = entryFor(fragment.key, now);
  Partial& partial = *entry.partial;
  if (partial.isSpoilt) return {};
  if (!merge(partial, fragment)) {
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
  entry.partial = newPartial();
  entry.partial->since = now;
  memory_ += sizeof(Partial);
  return entry;
}

std::unique_ptr<FragmentReassembler::Partial> FragmentReassembler::newPartial() {
  if (spare_.empty()) return std::make_unique<Partial>();
  std::unique_ptr<Partial> partial = std::move(spare_.back());
  spare_.pop_back();
  *partial = {};
  return partial;
}

/// Returns false when the fragment contradicts others of its datagram.
bool FragmentReassembler::merge(Partial& partial, const Fragment& fragment) {
  const Octets payload = fragment.payload;
  const std::size_t end = fragment.offset + payload.size();
  if (partial.total > 0 && (end > partial.total || (fragment.isLast && end != partial.total))) return false;
  if (fragment.isLast) {
    if (end < partial.end) return false;
    partial.total = end;
  }
  if (versionOf(fragment.header) == 6 && overlaps(partial, fragment)) return false;
  partial.end = std::max(partial.end, end);
  if (partial.bytes.size() < kMaxHeader + partial.end) {
    memory_ += kMaxHeader + partial.end - partial.bytes.size();
    partial.bytes.resize(kMaxHeader + partial.end);
  }
  for (std::size_t at = 0; at < payload.size(); at += kBlock) {
    const auto block = payload.subspan(at, std::min(kBlock, payload.size() - at));
    if (!mergeBlock(partial, fragment.offset + at, block)) return false;
  }
  if (fragment.offset == 0) {
    const Octets header = fragment.header;
    partial.headerLength = header.size();
    std::memcpy(partial.bytes.data() + kMaxHeader - header.size(), header.data(), header.size());
  }
  return true;
}

/// Returns true when a part of the fragment was there before, but not all of it.
bool FragmentReassembler::overlaps(const Partial& partial, const Fragment& fragment) {
  const std::size_t first = fragment.offset / kBlock;
  const std::size_t last = (fragment.offset + fragment.payload.size() - 1) / kBlock;
  for (std::size_t number = first; number <= last; ++number) {
    if (partial.present[number] != partial.present[first]) return true;
  }
  return false;
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
  partial.bytes = std::vector<std::uint8_t>();  // {} would keep the memory
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
  if (versionOf(datagram.packet) == 6) {
    store16(header + 4, partial.total);
    return datagram;
  }
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
  entry.partial->bytes = std::vector<std::uint8_t>();
  spare_.push_back(std::move(entry.partial));
  partials_.erase(entry);
}

}  // namespace voip
