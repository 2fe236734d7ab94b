#pragma once

#include <cstddef>

#include "forwarding/KeptMedia.h"
#include "forwarding/MissedSignalling.h"

namespace voip {

/// Recent frames that the recorder may still need: media that it has not asked for yet, and signalling that it missed
/// during an outage. Both share one amount of memory; signalling takes at most half of it. Consumer only.
struct LookBack {
  /// Keeps frames for `time` in `memory` bytes. Counts them in `statistics`, which must outlive the object.
  LookBack(Instant time, std::size_t memory, Statistics& statistics)
      : media(time, memory, statistics), signalling(time, memory / 2, statistics) {}

  /// Each keeps a copy of a frame. Throws std::bad_alloc.
  void keepMedia(const KeptFrame& kept) { media.keep(kept, signalling.size()); }
  void keepSignalling(const KeptFrame& kept) { signalling.keep(kept, monotonicNow()); }

  KeptMedia media;
  MissedSignalling signalling;
};

}  // namespace voip
