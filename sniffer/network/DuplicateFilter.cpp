#include "network/DuplicateFilter.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace voip {

namespace {

constexpr std::size_t kShortest = 20;  // an IPv4 header without options
constexpr std::size_t kTypeOfService = 1;
constexpr std::size_t kTimeToLive = 8;
constexpr std::size_t kChecksum = 10;
constexpr std::size_t kHopLimit = 7;    // in an IPv6 header
constexpr std::size_t kBeginning = 64;  // bytes of the payload of a numbered packet: include RTP and TCP headers
constexpr std::size_t kFront = 32;  // bytes of the payload that select the bucket: they spread packets over the table
constexpr std::uint64_t kCutOff = 1;
constexpr std::uint64_t kRest = 0xFF'FFFE;  // bits of a hash that depend on the payload after the beginning
constexpr int kArrivalBits = 10;            // arrivals are kept in about milliseconds

/// True for what may be an RTP packet (version 2), the first fragment included.
bool isMedia(const Ipv4Header& header, Octets payload) {
  constexpr std::size_t kUdpLength = 8;
  return header.protocol == IPPROTO_UDP && header.fragmentOffset == 0 && payload[kUdpLength] >> 6 == 2;
}

}  // namespace

// Inlined: a call with its arguments would cost a tenth of the whole.
[[gnu::always_inline]] inline bool DuplicateFilter::seen(const Compared& packet, std::int64_t captured,
                                                         std::int64_t now) {
  const Octets payload = packet.payload;
  const std::size_t front = std::min(payload.size(), kFront);
  const std::uint64_t place = hash_(payload.first(front), hash_(packet.fields));
  Bucket& bucket = buckets_[place & (buckets_.size() - 1)];
  __builtin_prefetch(&bucket, 1);  // while the rest of the packet is hashed
  const std::uint64_t compared = packet.isWhole ? ~kCutOff : ~(kCutOff | kRest);
  std::uint64_t identity = hash_(payload.subspan(front), place) & ~kCutOff;
  if (!packet.rest.empty()) [[unlikely]] {
    identity ^= hash_(packet.rest, place) & kRest;
  }
  const Sighting sighting{identity | (packet.isWhole ? 0 : kCutOff), static_cast<std::uint32_t>(captured),
                          static_cast<std::uint32_t>(now >> kArrivalBits)};
  const auto age = [&](const Sighting& other) { return sighting.arrived - other.arrived; };
  Sighting* oldest = bucket.sightings.data();
  const auto isRecent = [&](const Sighting& other) {
    const std::int64_t distance = static_cast<std::int32_t>(sighting.captured - other.captured);
    return age(other) <= kLongestDelay >> kArrivalBits && std::abs(distance) <= kWindow;
  };
  for (Sighting& other : bucket.sightings) {
    if (((other.hash ^ identity) & compared) == 0 && isRecent(other)) {
      if (!packet.isWhole || (other.hash & kCutOff) == 0) return true;
      other = sighting;
      return false;
    }
    if (other.hash == 0 || age(other) > age(*oldest)) oldest = &other;
  }
  if (oldest->hash != 0 && age(*oldest) <= kWindow >> kArrivalBits) counters_.count(NetworkCount::kDuplicatesForgotten);
  *oldest = sighting;
  return false;
}

bool DuplicateFilter::seen(const Ipv4Header& header, Octets packet, std::int64_t captured, std::int64_t now) {
  std::array<std::uint8_t, 60> fields;
  std::memcpy(fields.data(), packet.data(), kShortest);  // of constant size: the usual case
  if (header.length > kShortest) [[unlikely]] {
    std::memcpy(fields.data() + kShortest, packet.data() + kShortest, header.length - kShortest);
  }
  fields[kTypeOfService] = fields[kTimeToLive] = fields[kChecksum] = fields[kChecksum + 1] = 0;
  Octets payload = packet.subspan(header.length);
  Octets rest;
  if (header.id != 0 && payload.size() > kBeginning) {
    if (!isMedia(header, payload)) rest = payload.subspan(kBeginning);
    payload = payload.first(kBeginning);
  }
  return seen({Octets(fields).first(header.length), payload, rest, header.missing == 0}, captured, now);
}

bool DuplicateFilter::seen(const Ipv6Header& header, Octets packet, std::int64_t captured, std::int64_t now) {
  std::array<std::uint8_t, Ipv6Header::kFixed> fields;
  std::memcpy(fields.data(), packet.data(), fields.size());
  const std::uint32_t zone = header.zone;
  std::memcpy(fields.data(), &zone, sizeof zone);  // instead of version, traffic class and flow label
  fields[kHopLimit] = 0;
  return seen({fields, packet.subspan(fields.size()), {}, header.missing == 0}, captured, now);
}

}  // namespace voip
