#pragma once

#include <sys/types.h>

#include <cstddef>
#include <deque>
#include <memory>

#include "base/BlockPool.h"

/// One frame that waits for the host.
struct SnifferPacket {
  int length;             ///< bytes in `payload`
  const u_char* payload;  ///< the queue's, until pop()
};

namespace voip {

/// Copies of frames, first in, first out, in blocks that are reused. One thread at a time.
class FrameQueue {
 public:
  /// Queues a frame; it counts once it is published.
  void append(const u_char* bytes, int length);
  void publish() { published_ = appended_; }

  // Of what is published.
  std::size_t size() const { return published_; }
  SnifferPacket front() const;
  void pop();

  /// Drops everything, the unpublished too.
  void clear();

 private:
  struct Block {
    std::unique_ptr<PageBlock> memory;  ///< each frame after its length
    u_char* read;                       ///< the oldest frame that was not popped
  };

  Block& blockWithRoom(std::size_t size);

  static constexpr std::size_t kBlockSize = 128 << 10;  // the longest frame fits
  static constexpr std::size_t kMostSpare = 8;

  BlockPool pool_{kBlockSize, kMostSpare};
  std::deque<Block> blocks_;  ///< oldest first
  std::size_t appended_ = 0;
  std::size_t published_ = 0;
};

}  // namespace voip
