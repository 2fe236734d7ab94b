#pragma once

#include <pcap/pcap.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>

#include "base/BlockPool.h"
#include "base/Mutex.h"
#include "queue/CaptureStamp.h"
#include "queue/SniffedPacket.h"
#include "statistics/Statistics.h"

namespace voip {

/// One frame in the queue. Its bytes follow it, and kFrameSlack zeroed bytes follow these.
struct QueuedPacket {
  pcap_pkthdr header;  ///< `len` and `caplen` are both the number of bytes in the queue
  CaptureStamp stamp;
  std::uint64_t number;    ///< counts the queued frames
  std::uint32_t previous;  ///< bytes back to the record before this one in its block, 0 for the first
  std::int32_t linkType;   ///< libpcap's DLT_ value

  std::uint8_t* bytes() { return reinterpret_cast<std::uint8_t*>(this + 1); }
};

/// Captured frames on their way from the capture threads to the one consumer, oldest first.
///
/// Frames are copied into blocks of memory that are reused, so no frame allocates. The consumer takes a block at a time
/// under one lock. Without a limit the queue grows as far as the consumer lags, and gives the memory back afterwards.
///
/// With a limit, media and signalling wait in lanes of their own. When there is no room, the newest media frames are
/// dropped, and signalling only when no media is left to drop.
class PacketQueue {
 public:
  static constexpr std::size_t kBlockSize = 256 * 1024;

  /// What a frame carries, as far as the limit is concerned.
  enum class Kind { kSignalling, kMedia };

  explicit PacketQueue(Statistics& statistics);
  PacketQueue(const PacketQueue&) = delete;
  PacketQueue& operator=(const PacketQueue&) = delete;

  /// Waiting frames take at most this many bytes; 0 for no limit. Before the first frame.
  void setLimit(std::size_t bytes) { limit_ = bytes; }
  bool hasLimit() const { return limit_ != 0; }

  /// Bytes that wait elsewhere and count against the limit, or null. Before the first frame.
  void setOthersWaiting(const std::atomic<std::size_t>* bytes) { othersWaiting_ = bytes; }

  /// Queues a copy of a frame of at most `maxLength` bytes. Any thread. Throws std::bad_alloc.
  void push(const SniffedPacket& packet, u_int maxLength, Kind kind);

  /// Waits up to `atMost` for a frame or a wake(), and takes waiting frames as the new batch. Returns false when there
  /// are none. Consumer only.
  bool takeBatch(std::chrono::milliseconds atMost);

  /// The next frame of the batch, or null at its end. It stays until the next takeBatch(). Consumer only.
  QueuedPacket* next();

  /// Ends the consumer's wait. Any thread.
  void wake();

  /// Drops all waiting frames, those that the consumer has taken but not begun included. Counts them, and `others` that
  /// the caller has dropped, as discarded, and logs their number at DEBUG. Any thread; while the consumer is in a
  /// batch, up to 32 frames of it are spared.
  void clear(std::size_t others = 0);

  /// The same, sparing nothing. Consumer only.
  void clearFromConsumer(std::size_t others = 0);

  /// Waiting frames, those of the batch included. Any thread.
  std::size_t size();

  /// True when nothing waits and the consumer works on nothing. Any thread.
  bool isIdle();

 private:
  struct Block {
    std::unique_ptr<PageBlock> memory;
    std::size_t frames = 0;
    QueuedPacket* last = nullptr;

    QueuedPacket* first() const { return reinterpret_cast<QueuedPacket*>(memory->begin()); }
  };

  /// Blocks in the order of their frames.
  struct Lane {
    std::deque<Block> waiting;
    Block taken;                 ///< by the consumer
    std::uint8_t* at = nullptr;  ///< the consumer's place in it

    QueuedPacket* front() const {
      return taken.memory && at != taken.memory->end() ? reinterpret_cast<QueuedPacket*>(at) : nullptr;
    }
  };

  Block& blockFor(Lane& lane, std::size_t size) REQUIRES(packetQueueLock_);
  bool makeRoom(Lane& lane, std::size_t size) REQUIRES(packetQueueLock_);
  bool dropNewestMedia() REQUIRES(packetQueueLock_);
  bool fits(std::size_t size) const REQUIRES(packetQueueLock_);
  std::size_t waitingBytes() const REQUIRES(packetQueueLock_);
  void countOverflow(const Lane& lane) REQUIRES(packetQueueLock_);
  void logOverflowEnd() REQUIRES(packetQueueLock_);
  void takeFirstBlock(Lane& lane) REQUIRES(packetQueueLock_);
  void skipDiscarded() REQUIRES(packetQueueLock_);
  void recycle(Block& block) REQUIRES(packetQueueLock_);
  void wait(std::chrono::milliseconds atMost) REQUIRES(packetQueueLock_);
  void dropAll(std::size_t others) REQUIRES(packetQueueLock_);
  bool claim();

  Statistics& statistics_;
  std::size_t limit_ = 0;
  const std::atomic<std::size_t>* othersWaiting_ = nullptr;

  Condition packetPresent_{"packetPresent"};
  Mutex packetQueueLock_{"packetQueueLock", Mutex::kAdaptive};  // held for the copy of a frame

  // The lock guards the lanes, but for `taken` and `at`, which are the consumer's.
  Lane frames_;  ///< all frames; with a limit those that are no media
  Lane media_;
  BlockPool pool_ GUARDED_BY(packetQueueLock_);
  std::uint64_t pushed_ GUARDED_BY(packetQueueLock_) = 0;     ///< number of the next frame
  std::size_t waiting_ GUARDED_BY(packetQueueLock_) = 0;      ///< frames that the consumer has not taken
  std::size_t waitingSize_ GUARDED_BY(packetQueueLock_) = 0;  ///< their bytes
  bool sleeping_ GUARDED_BY(packetQueueLock_) = false;        ///< the consumer waits for a signal
  bool working_ GUARDED_BY(packetQueueLock_) = false;         ///< the consumer has a batch
  bool overflowing_ GUARDED_BY(packetQueueLock_) = false;
  bool woken_ GUARDED_BY(packetQueueLock_) = false;

  // Frames that the consumer has taken and not claimed. 0, though a block has frames left: they have been discarded. On
  // cache lines of their own, so that the consumer's progress does not disturb the producers.
  alignas(64) std::atomic<std::size_t> inHand_ = 0;
  std::atomic<std::size_t> handSize_ = 0;  ///< their bytes, to a claim

  // The consumer's own.
  alignas(64) std::uint64_t horizon_ = 0;  ///< the batch ends before this number
  std::size_t claimed_ = 0;                ///< frames that no other thread discards
  std::size_t claimedSize_ = 0;            ///< bytes taken since the last claim
};

}  // namespace voip
