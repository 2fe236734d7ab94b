#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "forwarding/KeptFrame.h"
#include "forwarding/LookBack.h"
#include "forwarding/RtpDestinations.h"
#include "queue/PacketQueue.h"
#include "recorder/BaseConnection.h"
#include "recorder/FrameHeader.h"
#include "statistics/Statistics.h"

namespace voip {

/// Brings frames to the recorder: collects frames that wait together, so that they leave with few system calls, and
/// counts what became of each. When the recorder is lost in the middle of a group, the frames after the failing one are
/// judged anew, as if they had been sent one by one. Consumer only, but for sendReply().
class FrameForwarder {
 public:
  /// A frame that leaves later than this after its capture is preceded by a frame with its capture time, if wanted.
  static constexpr std::int64_t kLate = 20'000;  ///< microseconds
  static constexpr int kTimeFrameLength = FrameHeader::kLength + 8;

  /// A recorder that is lost takes its destinations and what waits in the queue with it.
  FrameForwarder(RtpDestinations& destinations, PacketQueue& queue, Statistics& statistics)
      : destinations_(destinations), queue_(queue), statistics_(statistics) {}

  /// `lookBack` keeps what a lost recorder misses; may be null.
  void configure(bool announceCaptureTime, LookBack* lookBack);

  /// Puts a frame at the end of the group, which leaves when it is full. The bytes must stay until flush().
  void add(BaseConnection& connection, const KeptFrame& frame);

  /// Sends the group.
  LinkEvent flush();

  /// Sends media that was kept, the oldest first, after a flush(). Returns how many frames were sent; the others stay
  /// the caller's.
  std::size_t sendKept(BaseConnection& connection, std::span<const KeptFrame> frames);

  /// Forgets the group, whose bytes do not stay. Its frames count as not sent.
  void dropGroup();

  /// Sends the signalling that the recorder missed, as far as it takes it. `connectionFor` returns the connection of a
  /// frame by its class.
  template <typename ConnectionFor>
  void sendMissed(ConnectionFor connectionFor) {
    if (lookBack_ == nullptr) return;
    lookBack_->signalling.expire(monotonicNow());
    while (lookBack_->signalling.isDue(monotonicNow())) {
      flush();  // may drop the oldest one
      if (lookBack_->signalling.empty()) return;
      const KeptFrame oldest = lookBack_->signalling.front();
      if (!sendMissed(connectionFor(FrameHeader::protocolOf(oldest.frame.data())), oldest)) return;
    }
  }

  /// Sends a frame on the thread that takes commands. `takesCommands`: they come on this connection.
  void sendReply(BaseConnection& connection, bool takesCommands, std::span<u_char> frame);

 private:
  enum class Origin { kCaptured, kMissed };

  struct Entry {
    KeptFrame frame;
    FrameProtocol protocol;
    Origin origin;

    bool isSignalling() const { return protocol != FrameProtocol::Rtp; }
  };

  bool sendMissed(BaseConnection& connection, const KeptFrame& frame);
  void prepare(std::size_t from);
  void prepare(const KeptFrame& frame, std::size_t number, std::int64_t lateSince);
  std::size_t settle(std::size_t from, const SendResult& result);
  void loseRecorder(std::size_t from);
  void judgeAnew(std::size_t from, LinkEvent event);
  bool keep(const Entry& entry);

  RtpDestinations& destinations_;
  PacketQueue& queue_;
  Statistics& statistics_;
  LookBack* lookBack_ = nullptr;
  bool announceCaptureTime_ = false;

  BaseConnection* connection_ = nullptr;  ///< of all frames in the group
  std::vector<Entry> group_;
  std::vector<OutgoingFrame> outgoing_;  ///< the group with the frames that announce capture times
  std::vector<std::array<u_char, kTimeFrameLength>> timeFrames_;
};

}  // namespace voip
