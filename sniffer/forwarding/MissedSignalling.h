#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "forwarding/KeptFrame.h"
#include "statistics/Statistics.h"

namespace voip {

/// Signalling that a lost recorder missed, oldest first, for the next connection. Frames are kept for a limited time
/// and in a limited amount of memory; the oldest are dropped first. The caller passes the present time. The lane's
/// thread only.
class MissedSignalling {
 public:
  /// Keeps frames for `time` in `memory` bytes. Counts them in `statistics`, which must outlive the object.
  MissedSignalling(Instant time, std::size_t memory, Statistics& statistics)
      : time_(time), memory_(memory), statistics_(statistics) {}
  MissedSignalling(const MissedSignalling&) = delete;
  MissedSignalling& operator=(const MissedSignalling&) = delete;

  /// Keeps a copy of a frame. Drops the oldest ones when the memory is used up. Throws std::bad_alloc.
  void keep(const KeptFrame& kept, Instant now);

  /// As keep(), for a frame that was sent although the recorder may not have read it: it comes before all frames that
  /// are kept but those that were put back earlier. To be called for all such frames before endPutBack().
  void putBack(const KeptFrame& kept, Instant now);

  /// Ends a series of putBack(). Drops the oldest frames when the memory is used up.
  void endPutBack();

  /// True when no frame is kept.
  bool empty() const { return frames_.empty(); }

  /// Returns the memory in use, in bytes.
  std::size_t size() const { return size_; }

  /// Returns the oldest frame, which is valid until it is removed. There must be one.
  KeptFrame front();

  /// Removes the oldest frame. There must be one.
  void pop();

  /// Drops expired frames. To be called regularly.
  void expire(Instant now);

 private:
  struct Missed {
    Instant kept;  ///< when the frame was kept
    CaptureStamp stamp;
    std::vector<std::uint8_t> frame;
    Instant firstSent;  ///< as in KeptFrame
  };

  void add(std::deque<Missed>& frames, const KeptFrame& kept, Instant now);
  void limitMemory();

  const Instant time_;
  const std::size_t memory_;
  Statistics& statistics_;
  std::deque<Missed> frames_;   ///< oldest first
  std::deque<Missed> putBack_;  ///< frames before these, until endPutBack()
  std::size_t size_ = 0;        ///< bytes of both
};

}  // namespace voip
