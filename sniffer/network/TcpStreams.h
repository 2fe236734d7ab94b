#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

#include "network/LruTable.h"
#include "network/MessageFraming.h"
#include "network/NetworkSink.h"
#include "network/SeededHash.h"
#include "network/TcpSegment.h"

namespace voip {

/// Follows the TCP streams that carry SIP, SIP over WebSocket or TPKTs, and hands on their messages one by one,
/// wherever segments cut them: segments that come again, overlap, or come out of order, numbers that wrap around,
/// streams that are first seen in the middle. What is missing is waited for 2 s of capture time; then it goes on with
/// the next message.
///
/// A stream that carries something else is known by its first octets, or, when those were not seen, by what each of its
/// segments begins with.
///
/// Bounded: 256 KiB a stream; 64 MB and 100,000 streams, beyond which the one idle longest is forgotten.
class TcpStreams {
 public:
  static constexpr std::size_t kMaxStreams = 100'000;
  static constexpr std::size_t kMaxMemory = 64 << 20;
  static constexpr std::size_t kMaxStreamMemory = 256 << 10;
  static constexpr std::int64_t kPatience = 2'000'000;  ///< microseconds

  explicit TcpStreams(NetworkSink& takesMessages) : sink(takesMessages) {}

  /// Takes in one segment. `time` is its capture time in microseconds. False when it is of no stream that is followed,
  /// or has no payload.
  bool follow(const FlowEnds& ends, const TcpSegment& segment, std::int64_t time);

  std::size_t streamCount() const { return streams.size(); }
  std::size_t memoryUsed() const { return memory; }

 private:
  enum class Kind : std::uint8_t { kUndecided, kNeither, kTpkt, kSip, kHandshake, kWebSocket };

  /// Octets that came before those in front of them.
  struct Early {
    std::uint32_t sequence;
    std::vector<std::uint8_t> octets;
  };

  /// What a stream keeps from one segment to the next; most keep nothing.
  struct Kept {
    std::vector<std::uint8_t> partial;   ///< the message that is not whole
    std::vector<Early> early;            ///< by sequence number
    std::vector<std::uint8_t> assembly;  ///< a message of several WebSocket frames, as far as it goes
    std::size_t earlySize = 0;           ///< what `early` takes
    std::size_t size = 0;                ///< what all of it takes, as counted last
  };

  struct Stream {
    std::unique_ptr<Kept> kept;
    std::int64_t touched = 0;
    std::int64_t gapSince = 0;  ///< 0: nothing is missing
    std::uint64_t skip = 0;     ///< octets to come that are no message
    std::uint32_t first = 0;    ///< sequence number of its first octet, when `fromStart`
    std::uint32_t next = 0;     ///< sequence number of the octet that is waited for
    std::uint32_t wanted = 0;   ///< the partial message is whole when it is that long; 0: not known
    Kind kind = Kind::kUndecided;
    bool fromStart = false;
  };

  struct Gap {
    std::int64_t since;
    FlowEnds ends;
  };

  std::uint64_t hashOf(const FlowEnds& ends) const;
  Stream& newStream(const FlowEnds& ends, std::uint64_t hashed);
  void begin(Stream* stream, const FlowEnds& ends, std::uint64_t hashed, const TcpSegment& segment);
  void place(Stream& stream, std::uint32_t sequence, Octets octets, std::int64_t time);
  void keepEarly(Stream& stream, std::uint32_t sequence, Octets octets, std::int64_t time);
  void useEarly(Stream& stream);
  void closeGap(Stream& stream);
  void closeOldGaps(std::int64_t time);
  void restart(Stream& stream, std::uint32_t sequence);

  void deliver(Stream& stream, Octets octets);
  std::size_t takeMessages(Stream& stream, Octets octets, std::size_t known);
  Cut cut(Stream& stream, Octets octets, std::size_t known);
  Kind decide(Octets octets) const;
  std::size_t findNext(const Stream& stream, Octets octets);
  void handOn(Stream& stream, Octets message);
  void takeWebSocketFrame(Stream& stream, Octets octets);
  void refuse(const Stream& stream, std::uint64_t length);

  Kept& keptOf(Stream& stream);
  void account(Stream& stream);
  void forget(Stream& stream);
  void makeRoom();

  NetworkSink& sink;
  SeededHash hash;
  LruTable<FlowEnds, Stream> streams{kMaxStreams};
  std::deque<Gap> gaps;  ///< those that were opened, oldest first; some have been closed since
  std::size_t memory = 0;
  WebSocketFrame frame;                ///< the last one that was cut
  std::vector<std::uint8_t> unmasked;  ///< a message of a WebSocket, reused
};

}  // namespace voip
