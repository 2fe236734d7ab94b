#include "network/FragmentReassembler.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "base/FrameLimits.h"

namespace voip {

namespace {

void store16(std::uint8_t* at, std::size_t value) {
  at[0] = static_cast<std::uint8_t>(value >> 8);
  at[1] = static_cast<std::uint8_t>(value);
}

/// RFC 1071.
std::uint16_t checksum(std::span<const std::uint8_t> header) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i + 1 < header.size(); i += 2) sum += header[i] << 8 | header[i + 1];
  while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<std::uint16_t>(~sum);
}

}  // namespace

std::uint64_t FragmentReassembler::hashOf(const Key& key) const {
  std::array<std::uint8_t, 11> octets;
  std::memcpy(octets.data(), &key.source, 4);
  std::memcpy(octets.data() + 4, &key.destination, 4);
  std::memcpy(octets.data() + 8, &key.id, 2);
  octets[10] = key.protocol;
  return hash(octets);
}

std::optional<FragmentReassembler::Datagram> FragmentReassembler::add(const Ipv4Header& header,
                                                                      std::span<const std::uint8_t> packet,
                                                                      std::int64_t time) {
  expire(time);
  const std::size_t length = packet.size() - header.length;
  if (length == 0 || header.cut || (header.moreFragments && length % kBlock != 0) ||
      header.length + header.fragmentOffset + length > kMaxPayload) {
    counters_.count(NetworkCount::kFragmentsMalformed);
    return {};
  }
  Entry& entry = entryFor({header.source, header.destination, header.id, header.protocol}, time);
  Partial& partial = *entry.partial;
  if (partial.spoilt) return {};
  if (!merge(partial, header, packet)) {
    counters_.count(NetworkCount::kDatagramsContradictory);
    spoil(partial);
    return {};
  }
  const bool whole = partial.total > 0 && partial.headerLength > 0 &&
                     partial.blocks == (partial.total + kBlock - 1) / kBlock &&
                     partial.headerLength + partial.total <= kMaxPayload;
  if (!whole) {
    makeRoom();
    return {};
  }
  counters_.count(NetworkCount::kDatagramsReassembled);
  Datagram datagram = finish(partial);
  drop(entry);
  return datagram;
}

FragmentReassembler::Entry& FragmentReassembler::entryFor(const Key& key, std::int64_t time) {
  const std::uint64_t hashed = hashOf(key);
  if (Entry* entry = partials.find(key, hashed)) return *entry;
  if (partials.full()) {
    counters_.count(NetworkCount::kDatagramsDisplaced);
    drop(*partials.oldestValue());
  }
  Entry& entry = partials.insert(key, hashed);
  entry.partial = std::make_unique<Partial>();
  entry.partial->since = time;
  memory += sizeof(Partial);
  return entry;
}

/// False when it contradicts what is there.
bool FragmentReassembler::merge(Partial& partial, const Ipv4Header& header, std::span<const std::uint8_t> packet) {
  const auto payload = packet.subspan(header.length);
  const std::size_t end = header.fragmentOffset + payload.size();
  if (partial.total > 0 && (end > partial.total || (!header.moreFragments && end != partial.total))) return false;
  if (!header.moreFragments) {
    if (end < partial.end) return false;
    partial.total = end;
  }
  partial.end = std::max(partial.end, end);
  if (partial.bytes.size() < kMaxHeader + partial.end) {
    memory += kMaxHeader + partial.end - partial.bytes.size();
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

bool FragmentReassembler::mergeBlock(Partial& partial, std::size_t at, std::span<const std::uint8_t> block) {
  std::uint8_t* place = partial.bytes.data() + kMaxHeader + at;
  const std::size_t number = at / kBlock;
  if (partial.present[number]) return std::memcmp(place, block.data(), block.size()) == 0;
  partial.present[number] = true;
  ++partial.blocks;
  std::memcpy(place, block.data(), block.size());
  return true;
}

void FragmentReassembler::spoil(Partial& partial) {
  partial.spoilt = true;
  memory -= partial.bytes.size();
  partial.bytes = {};
}

FragmentReassembler::Datagram FragmentReassembler::finish(Partial& partial) {
  Datagram datagram;
  memory -= partial.bytes.size();
  datagram.memory = std::move(partial.bytes);
  partial.bytes.clear();
  datagram.memory.resize(kMaxHeader + partial.total + kFrameSlack);
  datagram.packet =
      std::span(datagram.memory).subspan(kMaxHeader - partial.headerLength, partial.headerLength + partial.total);
  std::uint8_t* header = datagram.packet.data();
  store16(header + 2, datagram.packet.size());
  store16(header + 6, 0);
  store16(header + 10, 0);
  store16(header + 10, checksum(datagram.packet.first(partial.headerLength)));
  return datagram;
}

void FragmentReassembler::makeRoom() {
  while (memory > kMaxMemory) {
    counters_.count(NetworkCount::kDatagramsDisplaced);
    drop(*partials.oldestValue());
  }
}

void FragmentReassembler::expire(std::int64_t time) {
  for (Entry* oldest = partials.oldestValue(); oldest != nullptr && time - oldest->partial->since > kPatience;
       oldest = partials.oldestValue()) {
    if (!oldest->partial->spoilt) counters_.count(NetworkCount::kDatagramsTimedOut);
    drop(*oldest);
  }
}

void FragmentReassembler::drop(Entry& entry) {
  memory -= sizeof(Partial) + entry.partial->bytes.size();
  partials.erase(entry);
}

}  // namespace voip
