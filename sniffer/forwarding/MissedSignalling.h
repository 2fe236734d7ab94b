#pragma once

#include <sys/types.h>

#include <cstddef>
#include <deque>
#include <vector>

#include "forwarding/KeptFrame.h"
#include "statistics/Statistics.h"

namespace voip {

/// Signalling that a lost recorder missed, oldest first, for when the recorder is back. Frames are kept for a fixed
/// time and in a fixed amount of memory; the oldest are dropped first. The caller hands in the time. One thread.
class MissedSignalling {
 public:
  /// `memory` in bytes.
  MissedSignalling(Instant time, std::size_t memory, Statistics& statistics)
      : time_(time), memory_(memory), statistics_(statistics) {}
  MissedSignalling(const MissedSignalling&) = delete;
  MissedSignalling& operator=(const MissedSignalling&) = delete;

  /// Keeps a copy of a frame.
  void keep(const KeptFrame& kept, Instant now);

  bool empty() const { return frames_.empty(); }

  /// Memory in use, in bytes.
  std::size_t size() const { return size_; }

  /// True when a frame waits and an attempt to send it makes sense: not within a second after a failed one.
  bool isDue(Instant now) const { return !empty() && now >= nextAttempt_; }

  /// The oldest frame. It stays until pop().
  KeptFrame front();
  void pop();

  /// An attempt to send the oldest frame failed: there is no recorder.
  void fail(Instant now);

  /// Drops frames that are too old. To be called now and then.
  void expire(Instant now);

 private:
  struct Missed {
    Instant kept;
    CaptureStamp stamp;
    std::vector<u_char> frame;
  };

  const Instant time_;
  const std::size_t memory_;
  Statistics& statistics_;
  std::deque<Missed> frames_;
  std::size_t size_ = 0;
  Instant nextAttempt_{0};
};

}  // namespace voip
