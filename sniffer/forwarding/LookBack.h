#pragma once

#include <cstddef>

#include "forwarding/KeptMedia.h"
#include "forwarding/MissedSignalling.h"

namespace voip {

/// What passed a moment ago and the recorder may still want: media that it has not asked for yet, and signalling that
/// it missed during an outage. Both share one amount of memory; signalling takes at most half of it. Consumer only.
struct LookBack {
  /// Frames are kept for `time`, in `memory` bytes.
  LookBack(Instant time, std::size_t memory, Statistics& statistics)
      : media(time, memory, statistics), signalling(time, memory / 2, statistics) {}

  void keepMedia(const KeptFrame& kept) { media.keep(kept, signalling.size()); }
  void keepSignalling(const KeptFrame& kept) { signalling.keep(kept, monotonicNow()); }

  KeptMedia media;
  MissedSignalling signalling;
};

}  // namespace voip
