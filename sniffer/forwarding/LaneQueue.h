#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "base/BlockPool.h"
#include "base/Mutex.h"
#include "forwarding/KeptFrame.h"
#include "queue/WaitingFrames.h"
#include "statistics/Statistics.h"

namespace voip {

/// Frames for one of several recorders, between the thread that classifies and the thread of the recorder's lane,
/// oldest first. Frames are copied. Neither thread waits for the other one, except for a lock that is held for the copy
/// of a frame.
///
/// The queue has a limit. A full queue drops the oldest media, and signalling only when no media waits.
class LaneQueue final : public WaitingFrames {
 public:
  /// `owner` names the recorder in log lines. `limit` in bytes, for frames that the lane has not taken yet. Counts
  /// frames in `statistics`, which must outlive the queue.
  LaneQueue(std::string owner, std::size_t limit, Statistics& statistics);
  LaneQueue(const LaneQueue&) = delete;
  LaneQueue& operator=(const LaneQueue&) = delete;

  /// As PacketQueue::setOthersWaiting().
  void setOthersWaiting(const std::atomic<std::size_t>* bytes) { othersWaiting_ = bytes; }

  // ---- the classifying thread ----

  /// Queues a copy of a frame. Drops and counts frames that do not fit, which may include this one. Throws
  /// std::bad_alloc.
  void push(const KeptFrame& kept);

  /// Wakes the lane if it sleeps and frames were pushed. To be called after a group of frames.
  void publish();

  // ---- the lane's thread ----

  /// Waits for a frame or a wake(), but no longer than `atMost`, and takes waiting frames as the new batch. Invalidates
  /// the frames of the previous batch. Returns false when no frame waits.
  bool takeBatch(std::chrono::milliseconds atMost);

  /// Sets `frame` to the next frame of the batch, oldest first. Returns false at its end. The queue owns the bytes,
  /// which are valid until the next takeBatch().
  bool next(KeptFrame& frame);

  void clearFromSender(std::size_t others = 0) override;

  // ---- any thread ----

  void wake() override;

  /// Does not drop the frames of the lane's batch, at most two blocks of memory.
  void clear(std::size_t others = 0) override;

  /// Drops all waiting frames without counting them, and returns their number. The lane's thread, or none.
  std::size_t discard();

  /// Returns the number of waiting frames, including those of the batch that next() has not returned.
  std::size_t size();

  /// True when no frame waits and the lane has no batch.
  bool isIdle();

 private:
  /// A frame in the queue. Its bytes follow this record.
  struct Record {
    CaptureStamp stamp;
    std::uint64_t number;  ///< position among all queued frames, from 0
    std::uint32_t length;  ///< bytes

    std::uint8_t* bytes() { return reinterpret_cast<std::uint8_t*>(this + 1); }
  };
  struct Block {
    std::unique_ptr<PageBlock> memory;
    std::size_t frames = 0;

    std::size_t size() const { return static_cast<std::size_t>(memory->end() - memory->begin()); }
    Record* first() const { return reinterpret_cast<Record*>(memory->begin()); }
  };

  /// Signalling or media: blocks, oldest frames first.
  struct Side {
    std::deque<Block> waiting;
    Block taken;                 ///< the block of the batch
    std::uint8_t* at = nullptr;  ///< the next record in `taken`

    Record* front() const {
      return taken.memory && at != taken.memory->end() ? reinterpret_cast<Record*>(at) : nullptr;
    }
  };

  static constexpr std::size_t kBlockSize = 64 * 1024;  ///< bytes
  static constexpr std::size_t kMaxSpare = 8;           ///< unused blocks

  static std::size_t recordSize(std::size_t length) { return PageBlock::aligned(sizeof(Record) + length); }
  std::size_t waitingBytes() const REQUIRES(lock_);
  std::size_t limitFor(const Side& side) const;
  bool makeRoom(const Side& side, std::size_t size) REQUIRES(lock_);
  void dropOldestBlock(Side& side) REQUIRES(lock_);
  void append(Side& side, const KeptFrame& kept, std::size_t size) REQUIRES(lock_);
  void takeFirstBlock(Side& side) REQUIRES(lock_);
  void countLost(const Side& side, std::size_t frames);
  void logOverflow(bool isLosing, std::size_t bytes);
  std::size_t discardWaiting();
  void countDiscarded(std::size_t frames);

  const std::string owner_;
  const std::size_t limit_;
  Statistics& statistics_;
  const std::atomic<std::size_t>* othersWaiting_ = nullptr;

  Mutex lock_{"", Mutex::kAdaptive};  ///< held for the copy of a frame or to take a block
  Condition framePresent_;

  // The lock guards the sides except `taken` and `at`, which belong to the lane.
  Side signalling_;
  Side media_;
  BlockPool pool_ GUARDED_BY(lock_){kBlockSize, kMaxSpare};
  std::uint64_t pushed_ GUARDED_BY(lock_) = 0;     ///< number of the next frame
  std::size_t waiting_ GUARDED_BY(lock_) = 0;      ///< frames that the lane has not taken
  std::size_t waitingSize_ GUARDED_BY(lock_) = 0;  ///< their bytes
  bool sleeping_ GUARDED_BY(lock_) = false;
  bool woken_ GUARDED_BY(lock_) = false;
  bool working_ GUARDED_BY(lock_) = false;  ///< the lane has a batch

  // The classifying thread only.
  bool hasNews_ = false;      ///< frames were pushed since the last publish()
  bool overflowing_ = false;  ///< the log says so

  std::uint64_t horizon_ = 0;            ///< the lane's thread: number of the first frame after the batch
  std::atomic<std::size_t> inHand_ = 0;  ///< frames of the batch that next() has not returned
};

}  // namespace voip
