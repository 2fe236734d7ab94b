#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "network/NetworkOptions.h"
#include "network/Octets.h"

namespace voip {

/// Receives the octets of one direction of a TCP stream in order.
class OctetReceiver {
 public:
  /// `captured` is the capture time of the segment that contained the octets.
  virtual void takeOctets(Octets octets, std::int64_t captured) = 0;

  /// Reports that `count` octets before the next ones are lost.
  virtual void loseOctets(std::uint64_t count) = 0;

  /// Reports that the next octets belong to another numbering: that of a connection whose SYN was seen, or an unknown
  /// one.
  virtual void restart(bool isFromStart) = 0;

 protected:
  ~OctetReceiver() = default;
};

/// The payload of a TCP segment. Times in microseconds; `now` never decreases.
struct ArrivedSegment {
  std::uint32_t sequence = 0;
  Octets octets;
  std::size_t missing = 0;  ///< octets after these that were not captured
  bool isLast = false;      ///< a FIN follows
  std::int64_t captured = 0;
  std::int64_t now = 0;
};

/// Puts the segments of one direction of a TCP stream into the order of their sequence numbers (RFC 9293). Handles
/// retransmitted, overlapping and out-of-order (early) segments, and sequence numbers that wrap around. Waits at a gap
/// until the other side acknowledges the missing octets, until no segment has filled it for NetworkLimits::gapPatience,
/// or until the out-of-order data after it takes more than NetworkLimits::earlyMemory.
///
/// A passive observer cannot ask a sender whether it sent a segment (RFC 5961). So one segment with unexpected numbers
/// has no effect: it is kept as the start of a rival numbering, and the old numbering stays valid. The rival replaces
/// it when a second segment continues the rival before an expected one arrives. The same holds for a SYN, and for a
/// segment that continues the numbers before a gap that was given up after the time-out: the segment after that gap may
/// have been forged.
class StreamReassembly {
 public:
  enum class Placement { kInOrder, kEarly, kRepeated, kUnexpected };
  static constexpr std::int64_t kNever = INT64_MAX;

  /// Starts with the octet of this sequence number. `isFromStart`: the octet is the first one after a SYN.
  void start(std::uint32_t sequence, bool isFromStart);

  /// Takes a segment. Octets that are next in order are passed on at once; others wait for release().
  Placement take(const ArrivedSegment& segment, OctetReceiver& receiver);

  /// Takes the SYN of another connection, whose first octet has this number.
  void takeSyn(std::uint32_t first);

  /// Takes a FIN or a RST without payload. It counts only when the octets seen so far end with its number.
  void takeEnd(std::uint32_t sequence);

  /// Notes that the other side has all octets before this number: those that are missing here were not captured.
  void acknowledge(std::uint32_t sequence);

  /// Passes on the next early segment, if it is in order or its gap is to be given up. Returns false when none is due.
  bool release(std::int64_t now, const NetworkLimits& limits, OctetReceiver& receiver);

  /// Passes on the start of a rival numbering that no segment has continued.
  void releaseRival(OctetReceiver& receiver);

  /// Returns the time at which release() has work to do.
  std::int64_t due(const NetworkLimits& limits) const;

  /// True when all octets up to a FIN or a RST were passed on.
  bool hasEnded() const { return hasEnded_; }

  /// True when the segment is so far from the expected one that it cannot belong to the same numbering.
  bool isFar(std::uint32_t sequence) const;

  /// Returns the memory of early segments, in bytes.
  std::size_t memoryUsed() const;

 private:
  using Position = std::int64_t;  // sequence numbers that do not wrap around

  struct Early {
    std::vector<std::uint8_t> octets;
    std::size_t missing = 0;
    bool isLast = false;
    std::int64_t captured = 0;
    std::int64_t arrived = 0;

    Position end(Position from) const { return from + static_cast<Position>(octets.size() + missing); }
  };

  struct Rival {
    std::uint32_t first = 0, next = 0;
    bool isSyn = false;
    Early start;
  };

  /// The members that most streams never need.
  struct Disorder {
    std::map<Position, Early> early;
    std::size_t earlySize = 0;
    std::int64_t waitsSince = 0;  ///< no expected segment has arrived since then
    Position acknowledged = 0;
    Position givenUp = 0;  ///< the start of a gap, as long as no segment has continued the numbers after it; or 0
    std::optional<Rival> rival;
  };

  Position positionOf(std::uint32_t sequence) const;
  bool isReady(const NetworkLimits& limits) const;
  bool continuesRival(const ArrivedSegment& segment) const;
  void deliver(Octets octets, const Early& segment, OctetReceiver& receiver);
  void goOn(const ArrivedSegment& segment, std::size_t old, OctetReceiver& receiver);
  Placement keepEarly(const ArrivedSegment& segment, Position at);
  void keepRival(const ArrivedSegment& segment);
  void adoptRival(OctetReceiver& receiver);
  void giveUpGap(Position to, OctetReceiver& receiver);
  Disorder& disorder();
  void tidy();

  Position next_ = 0;  ///< of the expected octet
  std::unique_ptr<Disorder> disorder_;
  std::uint32_t first_ = 0;  ///< of the stream, when `isFromStart_`
  bool isFromStart_ = false;
  bool hasEnded_ = false;
};

}  // namespace voip
