#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "base/LruTable.h"
#include "base/SeededHash.h"
#include "network/Ipv4.h"
#include "network/Ipv6.h"
#include "network/NetworkOptions.h"
#include "network/NetworkSink.h"
#include "network/Octets.h"

namespace voip {

/// Reassembles datagrams from their fragments (RFC 791, RFC 8200), which may arrive in any order and repeatedly. A
/// datagram whose fragments contradict each other is dropped with its later fragments; so is an IPv6 datagram whose
/// fragments overlap (RFC 5722), unless a fragment only repeats what is there. A UDP datagram whose checksum is wrong
/// is dropped: its fragments belong to different datagrams (RFC 4963). A checksum that was not computed counts as
/// correct.
///
/// Bounded: a datagram is dropped 30 s after its first fragment, and the oldest one when there are more than 4,096 or
/// they take more than 16 MB (see NetworkLimits).
class FragmentReassembler {
 public:
  FragmentReassembler(NetworkCounters& counters, const NetworkLimits& limits)
      : counters_(counters), limits_(limits), partials_(limits.datagrams) {
    spare_.reserve(limits.datagrams);
  }

  /// A whole datagram. `packet` is in `memory` and begins with its IP header, which is that of an unfragmented packet:
  /// an IPv6 packet comes without the extension headers that each fragment had. kFrameSlack zeroed bytes follow it.
  struct Datagram {
    std::vector<std::uint8_t> memory;
    std::span<std::uint8_t> packet;
  };

  /// Takes one fragment and returns its datagram when the fragment completes it. `packet` begins with `header` and ends
  /// with the IP packet. `now` is in microseconds and never decreases.
  std::optional<Datagram> add(const Ipv4Header& header, Octets packet, std::int64_t now);
  std::optional<Datagram> add(const Ipv6Header& header, Octets packet, std::int64_t now);

  /// Drops some of the datagrams that have waited for too long: the next call takes the others.
  void expire(std::int64_t now);

  std::size_t waiting() const { return partials_.size(); }  ///< incomplete datagrams
  std::size_t memoryUsed() const { return memory_; }

 private:
  static constexpr std::size_t kBlock = 8;  // the unit of fragment offsets
  static constexpr std::size_t kMaxHeader = 60;
  static constexpr std::size_t kMaxLength = 65535;  // in the header

  struct Key {
    IpAddress source, destination;
    std::uint32_t id = 0;
    std::uint16_t protocol = 0;  ///< of IPv4 only
    std::uint16_t zone = 0;      ///< of IPv6 only
    bool operator==(const Key&) const = default;
  };

  struct Fragment {
    Key key;
    Octets header;  ///< that of the datagram, if this is its first fragment
    Octets payload;
    std::size_t offset;
    bool isLast;
    bool isCut;  ///< not captured to its end
  };

  struct Partial {
    std::vector<std::uint8_t> bytes;  ///< kMaxHeader bytes that end with the header, then the payload
    std::bitset<kMaxLength / kBlock + 1> present;
    std::size_t blocks = 0;        ///< number of those that are present
    std::size_t end = 0;           ///< of the present part of the payload
    std::size_t total = 0;         ///< of the payload; 0 while the last fragment is missing
    std::size_t headerLength = 0;  ///< 0 while the first fragment is missing
    std::int64_t since = 0;
    bool isSpoilt = false;

    bool isWhole() const;
  };

  struct Entry {
    std::unique_ptr<Partial> partial;
  };

  std::optional<Datagram> add(const Fragment& fragment, std::int64_t now);
  std::uint64_t hashOf(const Key& key) const;
  std::unique_ptr<Partial> newPartial();
  Entry& entryFor(const Key& key, std::int64_t now);
  bool merge(Partial& partial, const Fragment& fragment);
  bool mergeBlock(Partial& partial, std::size_t at, Octets block);
  static bool overlaps(const Partial& partial, const Fragment& fragment);
  void spoil(Partial& partial);
  Datagram finish(Partial& partial);
  void makeRoom();
  void drop(Entry& entry);

  NetworkCounters& counters_;
  const NetworkLimits limits_;
  SeededHash hash_;
  LruTable<Key, Entry> partials_;  ///< entries are never touched, so they are in the order of their first fragments
  /// Reused, never freed: blocks of memory that stay between those of the payloads. Otherwise the allocator would join
  /// the payloads of thousands of dropped datagrams and return them to the system at once, during a single frame.
  std::vector<std::unique_ptr<Partial>> spare_;
  std::size_t memory_ = 0;
};

}  // namespace voip
