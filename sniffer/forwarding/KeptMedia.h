#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "base/BlockPool.h"
#include "base/IpEndpoint.h"
#include "base/LruTable.h"
#include "forwarding/KeptFrame.h"
#include "statistics/Statistics.h"

namespace voip {

/// Media that the recorder has not asked for yet, by destination. Frames are kept for a limited time and in a limited
/// amount of memory, the table of destinations included; the oldest are dropped first. The lane's thread only.
///
/// A recall returns the frames of one destination, oldest first, in several steps. Frames that are kept for the
/// destination during the recall follow later, with another recall. No frame expires during a recall.
///
/// Time stands still while the recorder waits for media that it has asked for: no frame that was young enough when the
/// recorder asked expires.
class KeptMedia {
 public:
  /// Keeps frames for `time` in `memory` bytes. Counts them in `statistics`, which must outlive the object.
  KeptMedia(Instant time, std::size_t memory, Statistics& statistics);
  KeptMedia(const KeptMedia&) = delete;
  KeptMedia& operator=(const KeptMedia&) = delete;

  /// Keeps a copy of a frame, which counts as dropped when it expires. `reserved` bytes of the memory are in use
  /// elsewhere. Throws std::bad_alloc.
  void keep(const KeptFrame& kept, std::size_t reserved);

  /// As keep(), for a frame that was sent although the recorder may not have read it: it is recalled before all frames
  /// of its destination but those that were put back earlier. To be called after cancelRecall(), and for all such
  /// frames before endPutBack().
  void putBack(const KeptFrame& kept, std::size_t reserved);

  /// Ends a series of putBack().
  void endPutBack();

  /// Begins a recall, after cancelRecall(). Returns false when no frame is kept for `destination`. Expired frames count
  /// as dropped.
  bool beginRecall(const IpEndpoint& destination);

  /// Looks up more frames of the recall, a limited number of them, since the newest is found first. Returns true when
  /// it has to be called again before peekRecalled().
  bool lookUpMore();

  /// Returns the next frames of the recall, at most `atMost`; none when no frame is left. They are valid until the next
  /// call of any operation.
  std::span<const KeptFrame> peekRecalled(std::size_t atMost);

  /// Removes the first `count` of these frames, which have been sent.
  void popRecalled(std::size_t count);

  /// Ends the recall. Its remaining frames are kept as before, in order.
  void cancelRecall();

  /// Drops expired frames, a limited number of them. To be called regularly.
  void expire();

  /// Stops the time at `since`, the time of the oldest request that has not been met; nullopt lets it run again.
  void stopTime(std::optional<Instant> since) { stoppedAt_ = since; }

 private:
  /// A kept frame, whose bytes follow the record. It links to the frame before it by address and number: a lower number
  /// than that of the oldest block shows that this frame was dropped, so that a block can be dropped unread.
  struct Record {
    Record* previous;              ///< the previous record of the same destination
    std::uint64_t previousNumber;  ///< its number, 0 for none; it may have been dropped
    Instant kept;                  ///< when the frame was kept
    CaptureStamp stamp;
    Instant firstSent;     ///< as in KeptFrame
    std::uint32_t length;  ///< bytes of the frame

    std::uint8_t* frame() { return reinterpret_cast<std::uint8_t*>(this + 1); }
  };
  struct Block {
    std::unique_ptr<PageBlock> memory;
    std::uint64_t firstNumber = 0;
    std::size_t waiting = 0;  ///< records that have not been sent

    Record* first() const { return reinterpret_cast<Record*>(memory->begin()); }
  };
  struct Newest {
    Record* record = nullptr;
    std::uint64_t number = 0;
  };

  static constexpr std::size_t kBlockSize = 128 * 1024;  ///< bytes
  static constexpr std::size_t kMaxSpare = 8;            ///< unused blocks

  bool isRecalling() const { return !recalled_.empty() || isKept(earlier_.number); }
  Newest append(const KeptFrame& kept, std::size_t reserved);
  static void link(Newest& last, const Newest& added);
  void prepend(const IpEndpoint& destination, const Newest& last);
  std::uint8_t* allocate(std::size_t size, std::size_t reserved);
  void dropOldestBlock(Statistics::Counter& counter);
  Newest& newestOf(const IpEndpoint& destination);
  void forgetEmptied(int atMost);
  Block& blockOf(std::uint64_t number);
  bool isKept(std::uint64_t number) const { return number >= oldestNumber(); }
  std::uint64_t oldestNumber() const { return blocks_.empty() ? nextNumber_ : blocks_.front().firstNumber; }
  Instant oldestAllowed() const { return stoppedAt_.value_or(monotonicNow()) - time_; }

  const Instant time_;
  const std::size_t memory_;  ///< bytes for blocks
  Statistics& statistics_;

  BlockPool pool_{kBlockSize, kMaxSpare};
  std::deque<Block> blocks_;      ///< oldest frames first
  std::uint64_t nextNumber_ = 1;  ///< number of the next record
  Instant newestKept_{0};
  std::optional<Instant> stoppedAt_;
  LruTable<IpEndpoint, Newest> newest_;  ///< the newest record of each destination

  /// The last frame that was put back, by destination, until endPutBack().
  std::unordered_map<IpEndpoint, Newest, IpEndpointHash> putBack_;

  // The recall.
  IpEndpoint recalledFor_;         ///< its destination
  std::deque<Newest> recalled_;    ///< its frames, oldest first; some may have been dropped meanwhile
  Newest earlier_;                 ///< the frame before these, which was not looked up yet; number 0: none
  std::vector<KeptFrame> peeked_;  ///< result of the last peekRecalled()
};

}  // namespace voip
