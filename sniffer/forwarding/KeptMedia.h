#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

#include "base/BlockPool.h"
#include "forwarding/KeptFrame.h"
#include "forwarding/RtpAddr.h"
#include "network/LruTable.h"
#include "network/SeededHash.h"
#include "statistics/Statistics.h"

namespace voip {

/// Media that the recorder has not asked for yet, by destination. Frames are kept for a fixed time and in a limited
/// amount of memory, the table of destinations included; the oldest are dropped first. Consumer only.
///
/// A recall hands out the frames of one destination, oldest first. It may take a while: frames that are kept for the
/// destination meanwhile come after its present ones, and no frame is dropped for its age alone.
class KeptMedia {
 public:
  /// `memory` in bytes.
  KeptMedia(Instant time, std::size_t memory, Statistics& statistics);
  KeptMedia(const KeptMedia&) = delete;
  KeptMedia& operator=(const KeptMedia&) = delete;

  /// Keeps a copy of a frame, which counts as dropped when its time is over. `reserved` bytes of the memory are in use
  /// elsewhere.
  void keep(const KeptFrame& kept, std::size_t reserved);

  /// Begins a recall. Returns false when nothing is kept for `destination`. Frames that are too old already count as
  /// dropped.
  bool beginRecall(RtpAddr destination);

  /// The next frames of the recall, at most `most`; none when it is over. They stay until the next call of an
  /// operation.
  std::span<const KeptFrame> peekRecalled(std::size_t most);

  /// The first `count` of these frames have been sent, and are kept no longer.
  void popRecalled(std::size_t count);

  /// Ends the recall; the rest of its frames is kept as before it, in order.
  void cancelRecall();

  /// Drops frames that are too old. To be called now and then.
  void expire();

 private:
  /// Its frame follows it. Only newer records link to older ones, by address and number, so that the oldest block can
  /// be dropped unread.
  struct Record {
    Record* previous;              ///< the record of the same destination before this one
    std::uint64_t previousNumber;  ///< 0: none
    Instant kept;
    CaptureStamp stamp;
    std::uint32_t length;

    u_char* frame() { return reinterpret_cast<u_char*>(this + 1); }
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

  static constexpr std::size_t kBlockSize = 128 * 1024;
  static constexpr std::size_t kMostSpare = 8;

  u_char* room(std::size_t size, std::size_t reserved);
  void dropOldestBlock(Statistics::Counter& counter);
  Newest& newestOf(std::uint64_t key);
  void forgetEmptied(int atMost);
  Block& blockOf(std::uint64_t number);
  bool isKept(std::uint64_t number) const { return number >= oldestNumber(); }
  std::uint64_t oldestNumber() const { return blocks_.empty() ? nextNumber_ : blocks_.front().firstNumber; }
  std::uint64_t hashOf(std::uint64_t key) const;

  const Instant time_;
  const std::size_t memory_;  ///< for blocks
  Statistics& statistics_;

  BlockPool pool_{kBlockSize, kMostSpare};
  std::deque<Block> blocks_;
  std::uint64_t nextNumber_ = 1;  ///< of the next record
  Instant newestKept_{0};
  SeededHash hash_;  ///< strangers choose the destinations
  LruTable<std::uint64_t, Newest> newest_;

  // The recall.
  std::uint64_t recalledKey_ = 0;
  std::deque<Newest> recalled_;  ///< oldest first; some may have been dropped since
  std::vector<KeptFrame> peeked_;
};

}  // namespace voip
