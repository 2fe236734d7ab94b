#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "network/NetworkOptions.h"
#include "network/Octets.h"

namespace voip {

/// Receives the octets of one direction of a TCP stream in order.
class OctetReceiver {
 public:
  /// `captured` is the capture time of the segment that contained the octets. `memory` is the vector that ends with
  /// them, which may be moved from; null when they are in no vector.
  virtual void takeOctets(Octets octets, std::int64_t captured, std::vector<std::uint8_t>* memory) = 0;

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

  std::int64_t length() const { return static_cast<std::int64_t>(octets.size() + missing); }
};

/// Puts the segments of one direction of a TCP stream into the order of their sequence numbers (RFC 9293). Handles
/// retransmitted, overlapping and out-of-order (early) segments, and sequence numbers that wrap around. Waits at a gap
/// until the other side acknowledges the missing octets, until no segment has filled it for NetworkLimits::gapPatience,
/// or until the out-of-order data after it takes more than NetworkLimits::earlyMemory.
///
/// A passive observer cannot ask a sender whether it sent a segment (RFC 5961). So one segment with unexpected numbers
/// has no effect: it is kept as the start of another numbering. That numbering replaces the present one when a second
/// segment continues it, or when the other side acknowledges exactly its octets. The same holds for a SYN.
///
/// The cause of a change may be forged: segments, a SYN, or an acknowledgement of octets that were never sent. So each
/// change leaves a mark at the octet that was expected before. A segment at a mark is kept there, out of reach of
/// senders that do not know its number, and is confirmed as above. So a sender that goes on with its own numbers gets
/// its stream back, at the cost of one message at most. One thread.
class StreamReassembly {
 public:
  enum class Placement { kInOrder, kEarly, kRepeated, kUnexpected };
  static constexpr std::int64_t kNever = INT64_MAX;

  /// Starts with the octet of this sequence number. `isFromStart`: the octet is the first one after a SYN.
  void start(std::uint32_t sequence, bool isFromStart);

  /// Takes a segment. Octets that are next in order are passed on at once; others wait for release().
  Placement take(const ArrivedSegment& segment, OctetReceiver& receiver);

  /// Follows the numbers of a segment whose octets are not needed. Returns false when it belongs to another numbering.
  bool track(std::uint32_t sequence, std::size_t length) {
    const Position end = positionOf(sequence) + static_cast<Position>(length);
    if (end - next_ > kWindow || next_ - end > kWindow) return false;
    next_ = end > next_ ? end : next_;
    return true;
  }

  /// Takes the SYN of another connection, whose first octet has this number.
  void takeSyn(std::uint32_t first);

  /// Takes a FIN or a RST without payload. It counts only when the octets seen so far end with its number.
  void takeEnd(std::uint32_t sequence);

  /// Notes that the other side has all octets before this number: those that are missing here were not captured.
  /// Ignores numbers beyond what the captured segments or the window of a TCP without options explain.
  void acknowledge(std::uint32_t sequence);

  /// Passes on the next early segment, if it is in order or its gap is to be given up. Without early segments, passes
  /// on those of another numbering that has been confirmed. Returns false when none is due.
  bool release(std::int64_t now, const NetworkLimits& limits, OctetReceiver& receiver);

  /// Passes on the segments of other numberings that nothing has confirmed.
  void releaseUnconfirmed(OctetReceiver& receiver);

  /// Returns the time at which release() has work to do.
  std::int64_t due(const NetworkLimits& limits) const;

  /// True when all octets up to a FIN or a RST were passed on.
  bool hasEnded() const { return hasEnded_; }

  /// True when an early segment is the last one of the connection.
  bool knowsEnd() const;

  /// True when a segment with this number is the expected one or may follow it.
  bool isAhead(std::uint32_t sequence) const;

  /// True when a segment with this number may be genuine: it is near the expected one or at a mark.
  bool isPlausible(std::uint32_t sequence) const;

  /// True when the numbering has changed lately. The numbers before the change may return.
  bool hasMarks() const { return disorder_ != nullptr && !disorder_->marks.empty(); }

  /// Returns the number of early segments.
  std::size_t earlyCount() const { return disorder_ == nullptr ? 0 : disorder_->early.size(); }

  /// Returns the memory of early and unconfirmed segments, in bytes.
  std::size_t memoryUsed() const;

 private:
  using Position = std::int64_t;  // sequence numbers that do not wrap around

  // Sequence numbers further away belong to another connection.
  static constexpr std::int32_t kWindow = 1 << 20;

  struct Early {
    std::vector<std::uint8_t> octets;
    std::size_t missing = 0;
    bool isLast = false;
    std::int64_t captured = 0;
    std::int64_t arrived = 0;

    Position end(Position from) const { return from + static_cast<Position>(octets.size() + missing); }
  };

  /// Some octets of a segment, by which a repetition is recognised.
  struct Sample {
    std::array<std::uint8_t, 8> octets;
    std::uint8_t size = 0;

    void set(Octets segment);
    bool agreesWith(Octets segment, std::size_t skipped = 0) const;
    bool isFull() const { return size == octets.size(); }
  };

  /// The first segments of another numbering.
  struct Candidate {
    std::uint32_t first = 0, next = 0;
    bool isSyn = false;
    bool isConfirmed = false;  ///< the other side has acknowledged it
    std::vector<Early> segments;
    std::size_t memory = 0;  ///< of the segments

    void add(const ArrivedSegment& segment);
  };

  /// The range of the octets that were expected when the numbering changed.
  struct Mark {
    std::uint32_t from = 0, length = 0;
    Position weight = 0;  ///< octets passed on before it
    Sample after;         ///< of the octets passed on after it
    std::unique_ptr<Candidate> candidate;

    bool covers(std::uint32_t sequence) const { return sequence - from < length; }
    /// True when only the `weight` octets are between these gaps, and both are within a window.
    bool follows(const Mark& gap) const {
      return from - static_cast<std::uint32_t>(weight) == gap.from + gap.length &&
             from + length - gap.from <= std::uint32_t{kWindow};
    }
  };

  /// Octets after a mark that were passed on before the old numbers returned.
  struct Passed {
    Position from = 0, to = 0;
    Sample beginning;
  };

  /// The members that most streams never need.
  struct Disorder {
    std::map<Position, Early> early;
    std::size_t earlySize = 0;
    std::int64_t waitsSince = 0;  ///< no expected segment has arrived since then
    Position acknowledged = 0;
    Position runStart = 0;             ///< where the present numbering began
    Position markedAt = 0;             ///< the expected octet when the last mark was left
    Position leftAt = kNever;          ///< the expected octet before earlier numbers returned
    std::int64_t confirmBy = kNever;   ///< until then an acknowledgement may confirm a candidate
    bool isConfirmed = false;          ///< a candidate is
    std::unique_ptr<Candidate> rival;  ///< far from all marks
    std::vector<Mark> marks;           ///< few
    Passed passed;
  };

  Position positionOf(std::uint32_t sequence) const {
    return next_ + static_cast<std::int32_t>(sequence - static_cast<std::uint32_t>(next_));
  }
  bool isFar(std::uint32_t sequence) const;
  bool isReady(const NetworkLimits& limits) const;
  std::int64_t earlyDue(const NetworkLimits& limits) const;
  void deliver(Octets octets, Early& segment, OctetReceiver& receiver);
  void goOn(const ArrivedSegment& segment, std::size_t old, OctetReceiver& receiver);
  std::size_t skipPassed(const ArrivedSegment& segment, std::size_t old, OctetReceiver& receiver);
  bool prolong(const ArrivedSegment& segment);
  bool resume(std::uint32_t sequence, OctetReceiver& receiver);
  Placement keepEarly(const ArrivedSegment& segment, Position at);
  static std::unique_ptr<Candidate> candidateOf(const ArrivedSegment& segment);
  bool keepAtMark(const ArrivedSegment& segment);
  void keepContradiction(const ArrivedSegment& segment, std::uint32_t from, std::uint32_t length);
  void keepRival(const ArrivedSegment& segment);
  bool contradicts(const ArrivedSegment& segment) const;
  void leaveMark(std::uint32_t to, Octets after);
  void addMark(Mark mark);
  bool mergeGaps();
  void adopt(Candidate candidate, Position weight, OctetReceiver& receiver);
  void returnTo(std::size_t number, OctetReceiver& receiver);
  bool adoptConfirmed(OctetReceiver& receiver);
  void giveUpGap(Position to, Octets after, OctetReceiver& receiver);
  void skipTo(Position to, OctetReceiver& receiver);
  void passLeft(OctetReceiver& receiver);
  Disorder& disorder();
  void tidy();

  Position next_ = 0;  ///< of the expected octet
  std::unique_ptr<Disorder> disorder_;
  std::uint32_t last_ = 0;      ///< the segment passed on last
  std::uint32_t lastSize_ = 0;  ///< 0: none
  Sample lastFront_, lastBack_;
  std::uint32_t first_ = 0;  ///< of the stream, when `isFromStart_`
  bool isFromStart_ = false;
  bool hasEnded_ = false;
};

}  // namespace voip
