#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include "base/BlockPool.h"
#include "forwarding/KeptFrame.h"
#include "forwarding/RtpAddr.h"
#include "statistics/Statistics.h"

namespace voip {

/// Media that the recorder has not asked for yet, by destination. Frames are kept for a fixed time and in a limited
/// amount of memory; the oldest are dropped first. Consumer only.
class KeptMedia {
 public:
  KeptMedia(Instant time, Statistics& statistics) : time_(time), statistics_(statistics) {}
  KeptMedia(const KeptMedia&) = delete;
  KeptMedia& operator=(const KeptMedia&) = delete;

  /// Keeps a copy of a frame, which counts as dropped when its time is over. All frames together take at most `memory`
  /// bytes, but at least two blocks.
  void keep(const KeptFrame& kept, std::size_t memory);

  /// The frames for `destination`, oldest first. They are kept no longer, but their memory stays until
  /// releaseRecalled().
  std::span<const KeptFrame> recall(RtpAddr destination);

  /// The memory of the last recall() may be reused.
  void releaseRecalled() { isPinned_ = false; }

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
    std::size_t waiting = 0;  ///< records that have not been recalled

    Record* first() const { return reinterpret_cast<Record*>(memory->begin()); }
  };
  struct Newest {
    Record* record;
    std::uint64_t number;
  };

  static constexpr std::size_t kBlockSize = 128 * 1024;
  static constexpr std::size_t kMostSpare = 8;

  u_char* room(std::size_t size, std::size_t memory);
  void dropOldestBlock(Statistics::Counter& counter);
  void forgetEmptied();
  Block& blockOf(std::uint64_t number);
  std::uint64_t oldestNumber() const { return blocks_.empty() ? nextNumber_ : blocks_.front().firstNumber; }

  const Instant time_;
  Statistics& statistics_;

  BlockPool pool_{kBlockSize, kMostSpare};
  std::deque<Block> blocks_;
  std::uint64_t nextNumber_ = 1;  ///< of the next record
  Instant newestKept_{0};
  std::unordered_map<std::uint64_t, Newest> newest_;  ///< by destination
  std::size_t forgetAt_ = 1024;                       ///< destinations at which those without a frame are forgotten
  std::vector<KeptFrame> recalled_;
  bool isPinned_ = false;  ///< frames of `recalled_` are in use
};

}  // namespace voip
