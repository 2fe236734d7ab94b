#pragma once

#include <algorithm>
#include <cstddef>

#include "forwarding/KeptMedia.h"
#include "forwarding/MissedSignalling.h"

namespace voip {

/// What passed a moment ago and the recorder may still want: media that it has not asked for yet, and signalling that
/// it missed during an outage. Both share one amount of memory; signalling takes at most half of it. Consumer only.
struct LookBack {
  /// Frames are kept for `time`, in `memory` bytes.
  LookBack(Instant time, std::size_t memory, Statistics& statistics)
      : media(time, statistics), signalling(time, memory / 2, statistics), memory_(memory) {}

  void keepMedia(const KeptFrame& kept) {
    const std::size_t taken = std::min(signalling.size(), memory_);
    media.keep(kept, memory_ - taken);
  }
  void keepSignalling(const KeptFrame& kept) { signalling.keep(kept, monotonicNow()); }

  void expire() {
    signalling.expire(monotonicNow());
    media.expire();
  }

  KeptMedia media;
  MissedSignalling signalling;

 private:
  const std::size_t memory_;
};

}  // namespace voip
