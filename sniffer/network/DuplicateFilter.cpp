#include "network/DuplicateFilter.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace voip {

namespace {

constexpr std::size_t kTimeToLive = 8;
constexpr std::size_t kChecksum = 10;
constexpr std::size_t kTelling = 64;  // of the payload of a numbered packet: RTP and TCP headers are in there
constexpr std::size_t kFront = 32;    // of the payload: enough for packets to spread over the table

}  // namespace

bool DuplicateFilter::seen(const Ipv4Header& header, std::span<const std::uint8_t> packet, std::int64_t time) {
  std::array<std::uint8_t, 60> fields;
  std::memcpy(fields.data(), packet.data(), header.length);
  fields[kTimeToLive] = fields[kChecksum] = fields[kChecksum + 1] = 0;
  auto payload = packet.subspan(header.length);
  if (header.id != 0) payload = payload.first(std::min(payload.size(), kTelling));
  const std::size_t front = std::min(payload.size(), kFront);
  const std::uint64_t place = hash(payload.first(front), hash(std::span(fields).first(header.length)));
  Bucket& bucket = buckets[place % kBuckets];
  __builtin_prefetch(&bucket, 1);  // while the rest is read
  const std::uint64_t identity = hash(payload.subspan(front), place);

  Sighting* oldest = bucket.sightings.data();
  for (Sighting& sighting : bucket.sightings) {
    if (sighting.hash == identity && std::abs(time - sighting.time) <= kWindow) return true;
    if (sighting.time < oldest->time) oldest = &sighting;
  }
  if (time - oldest->time <= kWindow) counters_.count(NetworkCount::kDuplicatesForgotten);
  *oldest = {identity, time};
  return false;
}

}  // namespace voip
