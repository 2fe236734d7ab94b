#pragma once

#include <pcap/pcap.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>

#include "base/BlockPool.h"
#include "base/CaptureStamp.h"
#include "base/Mutex.h"
#include "queue/SniffedPacket.h"
#include "queue/WaitingFrames.h"
#include "statistics/Statistics.h"

namespace voip {

/// One frame in the queue. Its bytes follow this record, then kFrameSlack zeroed bytes.
struct QueuedPacket {
  pcap_pkthdr header;  ///< `len` and `caplen` are both the number of bytes in the queue
  CaptureStamp stamp;
  std::uint64_t number;    ///< position among all queued frames, from 0
  std::uint32_t previous;  ///< distance in bytes to the previous record in the block, 0 for the first
  std::uint16_t linkType;  ///< libpcap's DLT_ value
  std::uint16_t zone;      ///< as in SniffedPacket

  /// The frame, `header.len` bytes, the link-layer header first.
  std::uint8_t* bytes() { return reinterpret_cast<std::uint8_t*>(this + 1); }
};

/// The queue of captured frames between the capture threads and the one consumer, oldest first.
///
/// push() copies frames into reused blocks of memory, so that a frame needs no separate allocation. The consumer takes
/// a whole block under one lock. Without a limit the queue grows while the consumer is too slow, and frees the memory
/// afterwards.
///
/// With a limit, media and signalling have separate sides. A full queue drops the newest media frames, and drops
/// signalling only when no waiting media is left.
class PacketQueue final : public WaitingFrames {
 public:
  static constexpr std::size_t kBlockSize = 256 * 1024;  ///< bytes

  /// The content of a frame, which decides what a full queue drops.
  enum class Kind { kSignalling, kMedia };

  /// Counts dropped frames in `statistics`, which must outlive the queue.
  explicit PacketQueue(Statistics& statistics);
  PacketQueue(const PacketQueue&) = delete;
  PacketQueue& operator=(const PacketQueue&) = delete;

  /// Limits the memory of the waiting frames to `bytes`; 0 for no limit. To be called before the first push().
  void setLimit(std::size_t bytes) { limit_ = bytes; }

  /// True when the queue has a limit. Any thread.
  bool hasLimit() const { return limit_ != 0; }

  /// Counts `*bytes`, the size of frames that wait elsewhere, against the limit; null for none. `bytes` must outlive
  /// the queue. To be called before the first push().
  void setOthersWaiting(const std::atomic<std::size_t>* bytes) { othersWaiting_ = bytes; }

  /// Queues a copy of a frame: its first bytes, as many as the smallest of `len`, `caplen` and `maxLength`. With a
  /// limit, drops and counts frames that do not fit, which may include this one. Any thread. Throws std::bad_alloc.
  void push(const SniffedPacket& packet, u_int maxLength, Kind kind);

  /// Waits for a frame or a wake(), but no longer than `atMost`, and takes waiting frames as the new batch. Invalidates
  /// the frames of the previous batch. Returns false when no frame waits. Consumer only.
  bool takeBatch(std::chrono::milliseconds atMost);

  /// Returns the next frame of the batch, oldest first, or null at its end. The queue owns the frame, which is valid
  /// until the next takeBatch(). Consumer only.
  QueuedPacket* next();

  void wake() override;

  /// While the consumer works on a batch, up to 32 frames of the batch are not dropped.
  void clear(std::size_t others = 0) override;
  void clearFromSender(std::size_t others = 0) override;

  /// Returns the number of waiting frames. Frames of the batch count until the consumer claims them, 32 at a time. Any
  /// thread.
  std::size_t size();

  /// True when no frame waits and the consumer has no batch. Any thread.
  bool isIdle();

 private:
  struct Block {
    std::unique_ptr<PageBlock> memory;
    std::size_t frames = 0;
    QueuedPacket* last = nullptr;

    QueuedPacket* first() const { return reinterpret_cast<QueuedPacket*>(memory->begin()); }
  };

  /// Blocks, oldest frames first.
  struct Side {
    std::deque<Block> waiting;
    Block taken;                 ///< the block of the consumer's batch
    std::uint8_t* at = nullptr;  ///< the next record in `taken`

    QueuedPacket* front() const {
      return taken.memory && at != taken.memory->end() ? reinterpret_cast<QueuedPacket*>(at) : nullptr;
    }
  };

  Block& blockFor(Side& side, std::size_t size) REQUIRES(packetQueueLock_);
  bool makeRoom(Side& side, std::size_t size) REQUIRES(packetQueueLock_);
  bool dropNewestMedia() REQUIRES(packetQueueLock_);
  std::size_t mediaLimit() const;
  bool fits(const Side& side, std::size_t size) const REQUIRES(packetQueueLock_);
  std::size_t waitingBytes() const REQUIRES(packetQueueLock_);
  void countOverflow(const Side& side) REQUIRES(packetQueueLock_);
  void logOverflowEnd() REQUIRES(packetQueueLock_);
  void takeFirstBlock(Side& side) REQUIRES(packetQueueLock_);
  void skipDiscarded() REQUIRES(packetQueueLock_);
  void recycle(Block& block) REQUIRES(packetQueueLock_);
  void wait(std::chrono::milliseconds atMost) REQUIRES(packetQueueLock_);
  void dropAll(std::size_t others) REQUIRES(packetQueueLock_);
  bool claim();

  Statistics& statistics_;
  std::size_t limit_ = 0;
  const std::atomic<std::size_t>* othersWaiting_ = nullptr;

  Condition packetPresent_{"packetPresent"};
  Mutex packetQueueLock_{"packetQueueLock", Mutex::kAdaptive};  ///< held for the copy of a frame

  // The lock guards the sides except `taken` and `at`, which belong to the consumer.
  Side frames_;  ///< all frames; with a limit, all but media
  Side media_;
  BlockPool pool_ GUARDED_BY(packetQueueLock_);
  std::uint64_t pushed_ GUARDED_BY(packetQueueLock_) = 0;     ///< number of the next frame
  std::size_t waiting_ GUARDED_BY(packetQueueLock_) = 0;      ///< frames that the consumer has not taken
  std::size_t waitingSize_ GUARDED_BY(packetQueueLock_) = 0;  ///< their bytes
  bool sleeping_ GUARDED_BY(packetQueueLock_) = false;        ///< the consumer waits for a notification
  bool working_ GUARDED_BY(packetQueueLock_) = false;         ///< the consumer has a batch
  bool overflowing_ GUARDED_BY(packetQueueLock_) = false;
  bool woken_ GUARDED_BY(packetQueueLock_) = false;

  // Both are on a separate cache line, so that the consumer's progress does not slow the capture threads.
  /// Frames that the consumer has taken and not claimed; 0 with frames left in a block after these were discarded.
  alignas(64) std::atomic<std::size_t> inHand_ = 0;
  std::atomic<std::size_t> handSize_ = 0;  ///< bytes of the taken frames, updated with each claim

  // Used by the consumer only.
  alignas(64) std::uint64_t horizon_ = 0;  ///< number of the first frame after the batch
  std::size_t claimed_ = 0;                ///< claimed frames that next() has not returned; clear() leaves them
  std::size_t claimedSize_ = 0;            ///< bytes of the frames returned since the last claim
};

}  // namespace voip
