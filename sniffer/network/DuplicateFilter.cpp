#include "DuplicateFilter.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t kTimeToLive = 8;
constexpr std::size_t kChecksum = 10;
constexpr std::size_t kTelling = 64;  // of the payload of a numbered packet: RTP and TCP headers are in there

}  // namespace

std::uint64_t DuplicateFilter::identify(const Ipv4Header& header, std::span<const std::uint8_t> packet) const {
  std::array<std::uint8_t, 60> fields;
  std::memcpy(fields.data(), packet.data(), header.length);
  fields[kTimeToLive] = fields[kChecksum] = fields[kChecksum + 1] = 0;
  const std::uint64_t ofHeader = hash(std::span(fields).first(header.length));
  const auto payload = packet.subspan(header.length);
  return hash(header.id == 0 ? payload : payload.first(std::min(payload.size(), kTelling)), ofHeader);
}

bool DuplicateFilter::seen(const Ipv4Header& header, std::span<const std::uint8_t> packet, std::int64_t time) {
  const std::uint64_t identity = identify(header, packet);
  auto& sightings = buckets[identity % kBuckets].sightings;
  Sighting* oldest = sightings.data();
  for (Sighting& sighting : sightings) {
    if (sighting.hash == identity && std::abs(time - sighting.time) <= kWindow) return true;
    if (sighting.time < oldest->time) oldest = &sighting;
  }
  if (time - oldest->time <= kWindow) statistics.duplicatesForgotten.add();
  *oldest = {identity, time};
  return false;
}
