#pragma once

#include <algorithm>
#include <cstddef>

#include "forwarding/KeptMedia.h"
#include "forwarding/MissedSignalling.h"
#include "forwarding/SentFrames.h"
#include "recorder/FrameHeader.h"

namespace voip {

/// Recent frames that the recorder may still need: media that it has not asked for yet, and signalling that it missed
/// during an outage. With a time for sending again, also frames that were sent shortly before it was lost. All share
/// one amount of memory; missed signalling and sent frames take at most half of it each. The lane's thread only.
struct LookBack {
  /// Keeps frames for `time`, and media that was sent for `resend`, in `memory` bytes. Signalling that was sent is kept
  /// for the longer of both times, unless `resend` is 0: it is little, and a recorder that hangs can leave it unread
  /// for long. Counts in `statistics`, which must outlive the object.
  ///
  /// What was sent again is kept again, since no recorder has had it for `resend`. When a recorder is lost again and
  /// again, this ends for a frame that was first sent more than `time` and `resend` before the last frame: it may be
  /// what makes the recorder crash.
  LookBack(Instant time, Instant resend, std::size_t memory, Statistics& statistics)
      : media(time, memory, statistics),
        signalling(time, memory / 2, statistics),
        sentMedia_(resend, time + resend, memory / 2 - signallingShare(memory), statistics),
        sentSignalling_(resend.count() > 0 ? std::max(time, resend) : resend, time + resend, signallingShare(memory),
                        statistics),
        statistics_(statistics) {}

  /// Each keeps a copy of a frame. Throws std::bad_alloc.
  void keepMedia(const KeptFrame& kept) { media.keep(kept, reserved()); }
  void keepSignalling(const KeptFrame& kept) { signalling.keep(kept, monotonicNow()); }

  /// Returns true when frames that were sent are kept.
  bool keepsSent() const { return sentMedia_.areKept(); }

  /// Keeps a copy of a frame whose sending began at `time`. Throws std::bad_alloc.
  void keepSent(const KeptFrame& kept, Instant time) {
    (isMedia(kept) ? sentMedia_ : sentSignalling_).keep(kept, time);
  }

  /// Drops sent frames that are too old. To be called regularly.
  void expireSent(Instant now) {
    sentMedia_.expire(now);
    sentSignalling_.expire(now);
  }

  /// Keeps the sent frames as if they had not been sent: before the others, in the order in which they were sent. To be
  /// called when the recorder is lost, after the frames that it missed were kept. Ends a recall. Throws std::bad_alloc.
  void putBackSent() {
    if (!keepsSent()) return;
    media.cancelRecall();
    const Instant now = monotonicNow();
    sentSignalling_.takeAll([&](const KeptFrame& kept) {
      signalling.putBack(kept, now);
      statistics_.resent.add();
    });
    sentMedia_.takeAll([&](const KeptFrame& kept) {
      media.putBack(kept, reserved());
      statistics_.resent.add();
    });
    media.endPutBack();
    signalling.endPutBack();
  }

  KeptMedia media;
  MissedSignalling signalling;

 private:
  /// The bytes for signalling that was sent. It is a small part of all frames.
  static std::size_t signallingShare(std::size_t memory) { return std::max(memory / 16, SentFrames::kLeastMemory); }

  static bool isMedia(const KeptFrame& kept) {
    return FrameHeader::protocolOf(kept.frame.data()) == FrameProtocol::Rtp;
  }
  std::size_t reserved() const { return signalling.size() + sentMedia_.size() + sentSignalling_.size(); }

  SentFrames sentMedia_, sentSignalling_;
  Statistics& statistics_;
};

}  // namespace voip
