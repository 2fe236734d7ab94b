#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "forwarding/KeptFrame.h"
#include "forwarding/LookBack.h"
#include "forwarding/RtpDestinations.h"
#include "queue/WaitingFrames.h"
#include "recorder/BaseConnection.h"
#include "recorder/CaptureTimeFrame.h"
#include "recorder/FrameHeader.h"
#include "statistics/Statistics.h"

namespace voip {

/// Sends frames to the recorder. Collects waiting frames in a group, so that few system calls send them, and counts
/// each as sent, kept or lost. When the recorder is lost within a group, checks the frames after the failing one again,
/// as if they were sent one by one. The lane's thread only, except sendReply().
class FrameForwarder {
 public:
  /// `destinations`: the recorder's, which are cleared when it is lost. `statistics` must outlive the object.
  FrameForwarder(const DestinationList& destinations, Statistics& statistics)
      : destinations_(destinations), statistics_(statistics) {}

  /// `announceCaptureTime`: whether a late frame is preceded by a frame with its capture time. `lookBack` keeps the
  /// frames that a lost recorder misses; it may be null. Without it, `waiting` is cleared when the recorder cannot be
  /// reached. The caller owns both. To be called before the first frame.
  void configure(bool announceCaptureTime, LookBack* lookBack, WaitingFrames& waiting);

  /// Adds a frame to the group, which is sent when it is full. Keeps signalling instead while older signalling waits
  /// for the recorder. The caller owns the bytes, which must be valid until flush().
  void add(BaseConnection& connection, const KeptFrame& frame);

  /// Sends the group. Returns what happened to the link.
  LinkEvent flush();

  /// The result of sending kept media.
  struct KeptSend {
    std::size_t frames = 0;  ///< number of frames that were sent, from the first on
    LinkEvent link = LinkEvent::kNone;
  };

  /// Sends kept media, oldest first. To be called after flush(). The caller removes the frames that were sent, keeps
  /// the others, and then calls noteLoss() if the link was lost.
  KeptSend sendKept(BaseConnection& connection, std::span<const KeptFrame> frames);

  /// Acts on the loss of the link: clears the destinations, and keeps again what was sent last and may not have been
  /// read.
  void noteLoss();

  /// Empties the group without sending it and counts its frames as not sent. For when their bytes become invalid.
  void dropGroup();

  /// Sends the signalling that a lost recorder missed, oldest first, until a send fails. Does nothing without a
  /// connection. To be called after each RecorderLinks::keepConnected() and before kept media is sent: so a connection
  /// begins with this signalling. `connectionFor` returns the BaseConnection& for a FrameProtocol.
  template <typename ConnectionFor>
  void sendMissed(ConnectionFor connectionFor) {
    if (lookBack_ == nullptr) return;
    lookBack_->signalling.expire(monotonicNow());
    while (!lookBack_->signalling.empty()) {
      flush();  // may drop the oldest one
      if (lookBack_->signalling.empty()) return;
      const KeptFrame oldest = lookBack_->signalling.front();
      BaseConnection& connection = connectionFor(FrameHeader::protocolOf(oldest.frame.data()));
      if (!connection.isConnected() || !sendMissed(connection, oldest)) return;
    }
  }

  /// Sends the reply to a command; the caller owns `frame`. `takesCommands`: whether commands arrive on `connection`.
  /// Command thread.
  void sendReply(BaseConnection& connection, bool takesCommands, std::span<std::uint8_t> frame);

 private:
  enum class Origin { kCaptured, kMissed };

  struct Entry {
    KeptFrame frame;
    FrameProtocol protocol;
    Origin origin;

    bool isSignalling() const { return protocol != FrameProtocol::Rtp; }
  };

  bool sendMissed(BaseConnection& connection, const KeptFrame& frame);
  void beginOutgoing(const BaseConnection& connection, std::size_t frames);
  void appendOutgoing(const KeptFrame& frame, std::size_t number, bool isAnnounced);
  std::size_t countDealtWith(std::size_t from, const SendResult& result, Instant begin);
  bool keepsSent(const BaseConnection& connection) const;
  void dropRest(std::size_t from);
  void recheckRest(std::size_t from, LinkEvent event);
  bool keep(const Entry& entry);

  DestinationList destinations_;
  WaitingFrames* waiting_ = nullptr;
  Statistics& statistics_;
  LookBack* lookBack_ = nullptr;
  bool announceCaptureTime_ = false;

  BaseConnection* connection_ = nullptr;  ///< of all frames in the group
  std::vector<Entry> group_;
  std::vector<OutgoingFrame> outgoing_;  ///< the frames of one send, with the frames that announce capture times
  std::vector<CaptureTimeFrame> timeFrames_;
  std::int64_t lateSince_ = CaptureTimeFrame::kNever;  ///< of the send: see CaptureTimeFrame
};

}  // namespace voip
