#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "base/FreedBlocks.h"
#include "base/LruTable.h"
#include "base/SeededHash.h"
#include "network/Backlog.h"
#include "network/MessageStream.h"
#include "network/NetworkOptions.h"
#include "network/NetworkSink.h"
#include "network/StreamReassembly.h"
#include "network/TcpSegment.h"

namespace voip {

/// Follows the TCP streams that carry SIP, SIP over WebSocket or TPKTs, and passes on their messages one by one. Each
/// direction is a separate stream: StreamReassembly orders its octets, MessageStream splits them into messages. A
/// stream of another protocol is recognised by its first octets. When these were not captured, each of its segments is
/// checked.
///
/// Bounded by NetworkLimits. When the table is full, streams are removed in this order: streams without payload,
/// foreign and undecided streams, other streams; among these, the longest idle one first. When the memory is used up,
/// the largest backlogs lose their oldest octets. Without backlogs, only streams that use memory are removed, the
/// largest first.
///
/// A call does a limited work, so that no frame is delayed by a long one or by earlier traffic. What is left is dealt
/// with by later calls, in order: early segments stay with their StreamReassembly, octets in order go to the Backlog.
/// These calls serve the streams in turn, so that a stream waits for one call of each other stream at most.
class TcpStreams {
 public:
  TcpStreams(NetworkSink& sink, const NetworkLimits& limits);

  /// Takes one segment. `captured` is its capture time; `now` never decreases; both in microseconds. Returns false when
  /// the segment belongs to no stream that is followed, or has no payload.
  bool follow(const FlowEnds& ends, const TcpSegment& segment, std::int64_t captured, std::int64_t now);

  /// Passes on what earlier calls have left, gives up the gaps that are due and passes on the early segments after
  /// them. Returns true when there is more to do now.
  bool expire(std::int64_t now);

  /// Does a limited part of the work at the end: passes on what is left, gives up all gaps and forgets all streams.
  /// Returns true when there is more to do. To be called when no segment will follow.
  [[nodiscard]] bool flush();

  std::size_t streamCount() const { return streams_.size(); }
  std::size_t memoryUsed() const { return memory_; }

 private:
  struct Stream;
  using Waiting = std::multimap<std::int64_t, Stream*>;  // those of the same time keep their order

  struct Stream {
    StreamReassembly order;
    MessageStream messages;
    std::unique_ptr<Backlog> backlog;  ///< null: none
    Waiting::iterator turn;            ///< its entry in `waiting_`, or the end of that
    std::uint32_t memory = 0;          ///< as counted last
    std::uint32_t touched = 0;         ///< in seconds
  };

  // Lists of the table: streams without payload; by memory, foreign and undecided streams; by memory, the others.
  static constexpr std::size_t kOpening = 0;
  static constexpr std::size_t kSizes = 4;
  static constexpr std::size_t kExpendable = 1;
  static constexpr std::size_t kSignalling = kExpendable + kSizes;
  static constexpr std::size_t kLists = kSignalling + kSizes;

  class Delivery;
  struct Budget;

  std::uint64_t hashOf(const FlowEnds& ends) const;
  Stream& newStream(const FlowEnds& ends, std::uint64_t hashed);
  void takeControl(Stream* stream, const FlowEnds& ends, std::uint64_t hashed, const TcpSegment& segment,
                   std::int64_t now);
  void takeSyn(Stream* stream, const FlowEnds& ends, std::uint64_t hashed, std::uint32_t first, std::int64_t now);
  bool hasEnded(Stream& stream, std::int64_t now);
  static void beginAnother(Stream& stream, std::uint32_t sequence, bool isFromStart);
  void takeForeign(Stream& stream, const TcpSegment& segment, std::int64_t now);
  bool takePayload(Stream& stream, const ArrivedSegment& segment);
  void acknowledge(const FlowEnds& ends, const TcpSegment& segment, std::int64_t now);

  bool release(Stream& stream, std::int64_t now, Budget& budget);
  void passBacklog(Stream& stream, Work& work);
  void releaseDue(std::int64_t now, Budget& budget);

  bool hasPayload(const Stream& stream) const { return streams_.listOf(stream) != kOpening; }
  bool isProtected(const Stream* stream) const;
  static bool isForeign(const Stream& stream);
  static bool isExpendable(const Stream& stream);
  bool settle(Stream& stream, std::int64_t touched, std::int64_t now);
  void schedule(Stream& stream, std::int64_t now);
  void unschedule(Stream& stream);
  void account(Stream& stream, std::int64_t now);
  void enlist(Stream& stream, std::size_t list, std::int64_t now);
  std::size_t listFor(const Stream& stream) const;
  void forget(Stream& stream);
  void noteFreed(std::size_t size);
  void countLost(std::size_t segments);
  void displace(Stream& stream);
  bool shortenBacklog();
  void makePlace();
  void makeRoom();

  NetworkSink& sink_;
  const NetworkLimits limits_;
  SeededHash hash_;
  LruTable<FlowEnds, Stream, kLists> streams_;
  Waiting waiting_;                                       ///< streams with work to do, by the time it is due
  std::set<std::pair<std::uint32_t, Stream*>> backlogs_;  ///< streams with a backlog, by memory
  std::size_t memory_ = 0;
  FreedBlocks freed_;
  std::vector<std::uint8_t> unmasked_;  ///< a message of a WebSocket, reused
};

}  // namespace voip
