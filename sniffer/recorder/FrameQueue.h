#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>

#include "base/BlockPool.h"

/// One frame in the queue to the host.
struct SnifferPacket {
  int length;             ///< bytes in `payload`
  const u_char* payload;  ///< the whole frame, header first; owned by the queue, valid until pop()
};

namespace voip {

/// A queue of copies of frames, first in, first out, in reused blocks of memory. One thread at a time.
///
/// The frames of a block follow each other without a gap, so many of them are taken with one copy.
class FrameQueue {
 public:
  /// Appends a copy of a frame of `length` bytes. It is not visible until publish(). Throws std::bad_alloc.
  void append(const std::uint8_t* bytes, int length);

  /// Makes all appended frames visible to the operations below.
  void publish() { published_ = appended_; }

  /// Returns the number of published frames.
  std::size_t size() const { return published_; }

  /// Returns the oldest frame. The queue must not be empty.
  SnifferPacket front() const;

  /// Removes the oldest frame. The queue must not be empty.
  void pop();

  /// Moves the oldest frames to `buffer`, one after the other, up to the first one that does not fit. Returns the
  /// number of bytes.
  std::size_t take(std::span<std::uint8_t> buffer);

  /// Removes all frames, published or not.
  void clear();

 private:
  /// Frames from the beginning of the memory on, and their lengths from its end on backwards.
  struct Block {
    std::unique_ptr<PageBlock> memory;
    std::uint8_t* read;          ///< the oldest frame that is still in the queue
    std::size_t frames = 0;      ///< frames ever appended
    std::size_t framesRead = 0;  ///< of these, frames that are no longer in the queue

    bool hasRoom(std::size_t size) const;
    int& length(std::size_t frame) const;
  };

  Block& blockWithRoom(std::size_t size);
  void remove(std::size_t frames, std::size_t bytes);

  static constexpr std::size_t kBlockSize = 128 << 10;  ///< bytes; the longest frame fits
  static constexpr std::size_t kMaxSpare = 8;           ///< unused blocks

  BlockPool pool_{kBlockSize, kMaxSpare};
  std::deque<Block> blocks_;  ///< oldest first
  std::size_t appended_ = 0;
  std::size_t published_ = 0;
};

}  // namespace voip
