#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "network/Ipv4.h"
#include "network/LruTable.h"
#include "network/SeededHash.h"
#include "network/NetworkSink.h"

namespace voip {

/// Puts IPv4 datagrams together of their fragments (RFC 791), in whatever order and how often they come. Fragments that
/// contradict each other spoil their datagram (as RFC 5722 has it for IPv6): what arrives of it later is dropped as
/// well.
///
/// Bounded: a datagram is given up 30 s after its first fragment, and the oldest one when there are more than 4,096 or
/// they take more than 16 MB. Time is that of the captures.
class FragmentReassembler {
 public:
  static constexpr std::int64_t kPatience = 30'000'000;  ///< microseconds
  static constexpr std::size_t kMaxDatagrams = 4'096;
  static constexpr std::size_t kMaxMemory = 16 << 20;

  explicit FragmentReassembler(NetworkCounters& counters) : counters_(counters) {}

  /// A whole datagram: `packet` is in `memory`, begins with its IP header, which says that it is no fragment, and has
  /// kFrameSlack zeroed bytes after it.
  struct Datagram {
    std::vector<std::uint8_t> memory;
    std::span<std::uint8_t> packet;
  };

  /// Takes in one fragment; `packet` begins with `header` and ends where the packet does. The datagram, when that was
  /// what it lacked.
  std::optional<Datagram> add(const Ipv4Header& header, std::span<const std::uint8_t> packet, std::int64_t time);

  std::size_t waiting() const { return partials.size(); }  ///< datagrams that lack something
  std::size_t memoryUsed() const { return memory; }

 private:
  static constexpr std::size_t kBlock = 8;  // fragments are cut in units of this
  static constexpr std::size_t kMaxHeader = 60;
  static constexpr std::size_t kMaxPayload = 65535;

  struct Key {
    std::uint32_t source = 0, destination = 0;
    std::uint16_t id = 0;
    std::uint8_t protocol = 0;
    bool operator==(const Key&) const = default;
  };

  struct Partial {
    std::vector<std::uint8_t> bytes;  ///< room for the header, payload, slack
    std::bitset<kMaxPayload / kBlock + 1> present;
    std::size_t blocks = 0;        ///< that are present
    std::size_t end = 0;           ///< of what has come
    std::size_t total = 0;         ///< of the payload; 0 while the last fragment is missing
    std::size_t headerLength = 0;  ///< 0 while the first one is missing
    std::int64_t since = 0;
    bool spoilt = false;
  };

  struct Entry {
    std::unique_ptr<Partial> partial;
  };

  std::uint64_t hashOf(const Key& key) const;
  Entry& entryFor(const Key& key, std::int64_t time);
  bool merge(Partial& partial, const Ipv4Header& header, std::span<const std::uint8_t> packet);
  bool mergeBlock(Partial& partial, std::size_t at, std::span<const std::uint8_t> block);
  void spoil(Partial& partial);
  Datagram finish(Partial& partial);
  void makeRoom();
  void expire(std::int64_t time);
  void drop(Entry& entry);

  NetworkCounters& counters_;
  SeededHash hash;
  LruTable<Key, Entry> partials{kMaxDatagrams};  // never touched, so in the order of their first fragments
  std::size_t memory = 0;
};

}  // namespace voip
