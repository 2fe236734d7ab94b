#pragma once

#include <pcap/pcap.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <thread>
#include <vector>

#include "CaptureStamp.h"
#include "PageBlock.h"
#include "SniffedPacket.h"
#include "Statistics.h"

/// One frame in the queue; its bytes stand behind it, with SniffedPacket::kSlack zeros behind them.
struct QueuedPacket {
  pcap_pkthdr header;  ///< `len` and `caplen` are both the number of bytes that are here
  CaptureStamp stamp;
  std::uint64_t number;    ///< counts the queued frames
  std::uint32_t previous;  ///< bytes back to the record in front of this one in its block, 0 for the first
  std::int32_t linkType;   ///< libpcap's DLT_ value

  u_char* bytes() { return reinterpret_cast<u_char*>(this + 1); }
};

/// Captured frames on their way from the capture threads to the one consumer, oldest first.
///
/// Frames are copied into blocks of memory that are reused, so none is allocated for a frame. The consumer takes a
/// block at a time, under one lock. Without a limit the queue grows as far as the consumer lags and gives the memory
/// back afterwards.
///
/// With a limit media and signalling wait in lanes of their own: when there is no room, the newest media frames are
/// dropped, and signalling only when no media is left to drop.
class PacketQueue {
 public:
  static constexpr std::size_t kBlockSize = 256 * 1024;

  explicit PacketQueue(Statistics& counters);
  ~PacketQueue();
  PacketQueue(const PacketQueue&) = delete;
  PacketQueue& operator=(const PacketQueue&) = delete;

  /// What waits takes at most this many bytes; 0 for no limit. Before the first frame.
  void setLimit(std::size_t bytes) { limit = bytes; }

  /// Queues a copy of a frame of at most `maxLength` bytes. Any thread. Throws std::bad_alloc.
  void push(const SniffedPacket& packet, u_int maxLength);

  /// Waits up to `atMost` for a frame or a wake(), and takes frames that wait as the new batch. False when there are
  /// none. Consumer only.
  bool takeBatch(std::chrono::milliseconds atMost);

  /// The next frame of the batch, or null at its end. It stays until the next takeBatch(). Consumer only.
  QueuedPacket* next();

  /// Ends the consumer's wait. Any thread.
  void wake();

  /// Drops all that waits, the rest of the consumer's batch included; returns how many frames that is. Any thread.
  std::size_t discard();

  /// Frames that wait, those of the batch included. Any thread.
  std::size_t size();

  /// True when nothing waits and the consumer is at work on nothing. Any thread.
  bool isIdle();

 private:
  struct Block {
    std::unique_ptr<PageBlock> memory;
    std::size_t frames = 0;
    QueuedPacket* last = nullptr;

    QueuedPacket* first() const { return reinterpret_cast<QueuedPacket*>(memory->begin()); }
  };

  /// Blocks in the order of their frames, and the consumer's place in the block that it has taken.
  struct Lane {
    std::deque<Block> waiting;
    Block taken;
    u_char* at = nullptr;

    QueuedPacket* front() const {
      return taken.memory && at != taken.memory->end() ? reinterpret_cast<QueuedPacket*>(at) : nullptr;
    }
  };
  enum LaneName { kAll = 0, kSignalling = 0, kMedia = 1 };

  Block& blockFor(Lane& lane, std::size_t size);
  bool makeRoom(Lane& lane, std::size_t size);
  bool dropNewestMedia();
  void dropHand();
  bool claim();
  void countOverflow(const Lane& lane);
  void tellOverflowEnd();
  void takeFirstBlock(Lane& lane);
  void recycle(Block& block);
  void wait(std::chrono::milliseconds atMost);

  Statistics& statistics;
  std::size_t limit = 0;

  pthread_mutex_t packetQueueLock;
  pthread_cond_t packetPresent;

  // Guarded by the lock, except for what the consumer has taken.
  Lane lanes[2];
  std::vector<std::unique_ptr<PageBlock>> spare;
  std::uint64_t pushed = 0;     ///< number of the next frame
  std::size_t waiting = 0;      ///< frames that the consumer has not taken
  std::size_t waitingSize = 0;  ///< their bytes
  bool sleeping = false;        ///< the consumer waits for a signal
  bool working = false;         ///< the consumer has a batch
  bool overflowing = false;

  bool woken = false;

  std::uint64_t horizon = 0;  ///< the batch ends in front of this number

  // Taken by the consumer and not yet claimed for processing. None, though a block has frames left: they have been
  // discarded. On lines of their own, so that the consumer's progress does not disturb the producers.
  alignas(64) std::atomic<std::size_t> inHand = 0;
  std::atomic<std::size_t> handSize = 0;  ///< their bytes, to a claim

  // The consumer's own.
  alignas(64) std::size_t claimed = 0;  ///< frames that no other thread discards
  std::size_t claimedSize = 0;          ///< bytes had since the last claim
  std::thread::id consumer;
};
