#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>

#include "base/BlockPool.h"
#include "forwarding/KeptFrame.h"
#include "statistics/Statistics.h"

namespace voip {

/// Copies of the frames that were sent last, oldest first: a recorder that is lost may not have read them. They are
/// kept for a limited time and in a limited amount of memory; the oldest are dropped first. The caller passes the
/// present time. The lane's thread only.
class SentFrames {
 public:
  static constexpr std::size_t kLeastMemory = 256 * 1024;  ///< bytes

  /// Keeps frames for `time`, none when it is 0, in `memory` bytes, at least kLeastMemory. A frame that was first sent
  /// more than `age` before the last one is not passed on. Counts in `statistics`, which must outlive the object.
  SentFrames(Instant time, Instant age, std::size_t memory, Statistics& statistics);
  SentFrames(const SentFrames&) = delete;
  SentFrames& operator=(const SentFrames&) = delete;

  /// Returns false when no frames are kept.
  bool areKept() const { return time_.count() > 0; }

  /// Keeps a copy of a frame. Drops the oldest ones when the memory is used up, and counts them. Throws
  /// std::bad_alloc.
  void keep(const KeptFrame& kept, Instant now);

  /// Returns the memory in use, in bytes.
  std::size_t size() const { return blocks_.size() * kBlockSize; }

  /// Drops expired frames. To be called regularly.
  void expire(Instant now);

  /// Removes all frames. Passes on those that were sent within the time before the last one, unless they are too old;
  /// `take` gets each as a KeptFrame, which is valid during the call. If it throws, the other frames stay. Both times
  /// end with the last frame and not now: a send can wait long for a recorder that hangs and is then lost.
  template <typename Take>
  void takeAll(Take take) {
    const Instant oldest = newest() - time_;
    const Instant firstSent = newest() - age_;
    for (; !blocks_.empty(); dropOldestBlock()) {
      PageBlock& memory = *blocks_.front().memory;
      for (std::uint8_t* at = memory.begin(); at != memory.end();) {
        auto& record = *reinterpret_cast<Record*>(at);
        if (record.sent >= oldest && record.firstSent >= firstSent) {
          take(KeptFrame{record.stamp, {record.frame(), record.length}, record.firstSent});
        }
        at += sizeOf(record.length);
      }
    }
  }

 private:
  /// A frame, whose bytes follow the record.
  struct Record {
    Instant sent;
    Instant firstSent;  ///< on an earlier connection, if it was sent again
    CaptureStamp stamp;
    std::uint32_t length;  ///< bytes of the frame

    std::uint8_t* frame() { return reinterpret_cast<std::uint8_t*>(this + 1); }
  };
  struct Block {
    std::unique_ptr<PageBlock> memory;
    std::size_t frames = 0;
    Instant newest{0};  ///< when its last frame was sent
  };

  static constexpr std::size_t kBlockSize = kLeastMemory / 2;  ///< bytes
  static constexpr std::size_t kMaxSpare = 8;                  ///< unused blocks

  static std::size_t sizeOf(std::size_t length) { return PageBlock::aligned(sizeof(Record) + length); }
  Instant newest() const { return blocks_.empty() ? Instant(0) : blocks_.back().newest; }
  Block& blockFor(std::size_t size, Instant now);
  void dropOldestBlock();

  const Instant time_;
  const Instant age_;
  const std::size_t memory_;  ///< bytes
  Statistics& statistics_;
  BlockPool pool_{kBlockSize, kMaxSpare};
  std::deque<Block> blocks_;  ///< oldest frames first
};

}  // namespace voip
