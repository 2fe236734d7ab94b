#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "base/SeededHash.h"
#include "network/Ipv4.h"
#include "network/Ipv6.h"
#include "network/NetworkSink.h"
#include "network/Octets.h"

namespace voip {

/// Recognises an IP packet that was captured before within the window: at another mirror port, or on the other side of
/// a router.
///
/// Two packets are equal when they differ at most in the fields that routers change: type of service, time to live and
/// header checksum of IPv4, traffic class, flow label and hop limit of IPv6. The whole packets are compared, so that a
/// forged packet hides no other one. Packets with link-local addresses are different in different zones. There are two
/// exceptions when the sender numbers its packets (IPv4, the identification is not 0): only the header and the first
/// bytes of the payload are compared, of media because this costs less, and of packets that the capture cut off because
/// no more is there. A whole packet is no duplicate of a packet that the capture cut off.
///
/// Remembers 64-bit hashes in a table of fixed size: by default 65,536 packets, 50 ms of 1.3 million packets a second.
class DuplicateFilter {
 public:
  static constexpr std::int64_t kWindow = 50'000;  ///< microseconds between the capture times
  /// Microseconds between the arrivals: a capture thread may deliver its frames a second late. This limit protects the
  /// window against steps of the capture times.
  static constexpr std::int64_t kLongestDelay = 5'000'000;

  DuplicateFilter(NetworkCounters& counters, std::size_t buckets) : counters_(counters), buckets_(buckets) {}

  /// Returns true when the packet was seen before. `captured` is its capture time in microseconds; frames of several
  /// devices may arrive out of order. `now` never decreases. `packet` begins with the IP header and ends with the
  /// packet.
  bool seen(const Ipv4Header& header, Octets packet, std::int64_t captured, std::int64_t now);
  bool seen(const Ipv6Header& header, Octets packet, std::int64_t captured, std::int64_t now);

 private:
  /// What is compared of a packet. `rest` is compared with fewer bits, and only when both packets are whole.
  struct Compared {
    Octets fields, payload, rest;
    bool isWhole;
  };

  struct Sighting {
    std::uint64_t hash = 0;      ///< the lowest bit is set when the packet was cut off; all 0: none
    std::uint32_t captured = 0;  ///< microseconds, modulo 2^32
    std::uint32_t arrived = 0;   ///< units of 1,024 microseconds, modulo 2^32
  };
  struct alignas(64) Bucket {  // a cache line
    std::array<Sighting, 4> sightings;
  };

  bool seen(const Compared& packet, std::int64_t captured, std::int64_t now);

  NetworkCounters& counters_;
  SeededHash hash_;
  std::vector<Bucket> buckets_;
};

}  // namespace voip
