#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "network/Ipv4.h"
#include "network/SeededHash.h"
#include "network/NetworkSink.h"

namespace voip {

/// Knows an IPv4 packet again that was seen a moment ago: at another mirror port, or on the other side of a router.
///
/// Packets are the same when all of them is but time to live and header checksum. When the sender numbers its packets
/// (identification is not 0) the header and the first bytes of the payload decide; else all of it. Remembered is a
/// 64-bit hash, in a table of fixed size: 65,536 packets, which is 50 ms of 1.3 million packets a second.
class DuplicateFilter {
 public:
  static constexpr std::int64_t kWindow = 50'000;  ///< microseconds

  explicit DuplicateFilter(NetworkCounters& counters) : counters_(counters), buckets(kBuckets) {}

  /// True when the packet was seen within the window before. `time` is the capture time in microseconds; several
  /// devices' times may come a little out of order. `packet` begins with the header and ends where the packet does.
  bool seen(const Ipv4Header& header, std::span<const std::uint8_t> packet, std::int64_t time);

 private:
  static constexpr std::size_t kBuckets = 16'384;

  struct Sighting {
    std::uint64_t hash = 0;
    std::int64_t time = INT64_MIN / 2;
  };
  struct alignas(64) Bucket {  // a cache line
    std::array<Sighting, 4> sightings;
  };

  NetworkCounters& counters_;
  SeededHash hash;
  std::vector<Bucket> buckets;
};

}  // namespace voip
