#pragma once

#include <cstddef>

#include "forwarding/KeptMedia.h"
#include "forwarding/MissedSignalling.h"
#include "forwarding/SentFrames.h"
#include "recorder/FrameHeader.h"

namespace voip {

/// Recent frames that the recorder may still need: media that it has not asked for yet, and signalling that it missed
/// during an outage. With a time for sending again, also frames that were sent shortly before it was lost. All share
/// one amount of memory; signalling and sent frames take at most half of it each. Consumer only.
struct LookBack {
  /// Keeps frames for `time`, and sent ones for `resend`, in `memory` bytes. Counts them in `statistics`, which must
  /// outlive the object.
  LookBack(Instant time, Instant resend, std::size_t memory, Statistics& statistics)
      : media(time, memory, statistics),
        signalling(time, memory / 2, statistics),
        sent(resend, memory / 2, statistics),
        statistics_(statistics) {}

  /// Each keeps a copy of a frame. Throws std::bad_alloc.
  void keepMedia(const KeptFrame& kept) { media.keep(kept, reserved()); }
  void keepSignalling(const KeptFrame& kept) { signalling.keep(kept, monotonicNow()); }

  /// Keeps the sent frames as if they had not been sent: before the others, in the order in which they were sent. To be
  /// called when the recorder is lost, after the frames that it missed were kept. Ends a recall. Throws std::bad_alloc.
  void putBackSent() {
    if (!sent.areKept()) return;
    media.cancelRecall();
    const Instant now = monotonicNow();
    sent.takeAll([&](const KeptFrame& kept) {
      const bool isMedia = FrameHeader::protocolOf(kept.frame.data()) == FrameProtocol::Rtp;
      isMedia ? media.putBack(kept, reserved()) : signalling.putBack(kept, now);
      statistics_.resent.add();
    });
    media.endPutBack();
    signalling.endPutBack();
  }

  KeptMedia media;
  MissedSignalling signalling;
  SentFrames sent;

 private:
  std::size_t reserved() const { return signalling.size() + sent.size(); }

  Statistics& statistics_;
};

}  // namespace voip
