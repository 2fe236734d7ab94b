#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>

#include "base/BlockPool.h"
#include "base/CaptureStamp.h"
#include "recorder/CaptureTimeFrame.h"

/// One frame in the queue to the host.
struct SnifferPacket {
  int length;             ///< bytes in `payload`
  const u_char* payload;  ///< the whole frame, header first; owned by the queue, valid until pop()
};

namespace voip {

/// A queue of copies of frames, first in, first out, in reused blocks of memory. One thread at a time.
///
/// The frames of a block follow each other without a gap, so many of them are taken with one copy.
///
/// A queue that keeps stamps delivers a CaptureTimeFrame before a frame that is late when it is fetched. Only a fetch
/// can decide this, because frames become late while they wait. size() and bytes() do not include a CaptureTimeFrame.
class FrameQueue {
 public:
  /// Sets whether the stamps of the frames that follow are kept. Without its stamp a frame is not announced.
  void setKeepsStamps(bool keep);

  /// Appends a copy of a frame of `length` bytes. It is not visible until publish(). A frame with a `stamp` of zero is
  /// not announced. Throws std::bad_alloc.
  void append(const std::uint8_t* bytes, int length, const CaptureStamp& stamp);

  /// Makes all appended frames visible to the operations below.
  void publish() { published_ = appended_; }

  /// Returns the number of published frames.
  std::size_t size() const { return published_; }

  /// Returns the size of all frames in bytes, published or not.
  std::size_t bytes() const { return bytes_; }

  /// Begins a fetch, which consists of the operations below: decides which frames are late.
  void beginFetch() {
    if (keepsStamps_) lateSince_ = CaptureTimeFrame::lateSince();
  }

  /// Returns the oldest frame, or first its capture time when it is late. The queue must not be empty.
  SnifferPacket front();

  /// Removes what front() returns. The queue must not be empty.
  void pop();

  /// Moves the oldest frames to `buffer`, one after the other, up to the first one that does not fit. Returns the
  /// number of bytes. A late frame and its capture time fit together or not at all; when they are longer than `buffer`,
  /// the capture time is taken alone and the frame by the next fetch.
  std::size_t take(std::span<std::uint8_t> buffer);

  /// Returns the length of the shortest buffer with which take() moves anything. The queue must not be empty.
  int shortestBuffer() const;

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
  SnifferPacket oldest() const;
  bool isLate(std::size_t frame) const;

  static constexpr std::size_t kBlockSize = 128 << 10;  ///< bytes; the longest frame fits
  static constexpr std::size_t kMaxSpare = 8;           ///< unused blocks

  BlockPool pool_{kBlockSize, kMaxSpare};
  std::deque<Block> blocks_;  ///< oldest first
  std::size_t appended_ = 0;
  std::size_t published_ = 0;
  std::size_t bytes_ = 0;

  bool keepsStamps_ = false;
  std::deque<CaptureStamp> stamps_;  ///< of all frames if kept, oldest first; zero: not announced, or not again
  std::int64_t lateSince_ = CaptureTimeFrame::kNever;  ///< of the fetch: see CaptureTimeFrame
  CaptureTimeFrame timeFrame_;                         ///< what front() returns before a late frame
};

}  // namespace voip
