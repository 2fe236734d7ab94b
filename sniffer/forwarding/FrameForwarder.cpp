#include "forwarding/FrameForwarder.h"

#include <algorithm>

#include "forwarding/MediaHeader.h"

namespace voip {

namespace {

constexpr std::size_t kMaxGroup = 128;  // frames

bool isSentTime(const OutgoingFrame& frame) {
  return frame.sent == frame.length && FrameHeader::protocolOf(frame.bytes) == FrameProtocol::CaptureTime;
}

}  // namespace

void FrameForwarder::configure(bool announceCaptureTime, LookBack* lookBack, WaitingFrames& waiting) {
  announceCaptureTime_ = announceCaptureTime;
  lookBack_ = lookBack;
  waiting_ = &waiting;
}

// ---- the group ----

void FrameForwarder::add(BaseConnection& connection, const KeptFrame& frame) {
  const bool isFull = connection_ != &connection || group_.size() == kMaxGroup;
  const LinkEvent event = isFull ? flush() : LinkEvent::kNone;
  const Entry entry{frame, FrameHeader::protocolOf(frame.frame.data()), Origin::kCaptured};
  // Signalling that the recorder missed is sent first.
  if (lookBack_ != nullptr && entry.isSignalling() && !lookBack_->signalling.empty()) {
    lookBack_->keepSignalling(frame);
    return;
  }
  connection_ = &connection;
  group_.push_back(entry);
  // The frames after this one are kept, so it must not wait for the next flush.
  if (event != LinkEvent::kNone && lookBack_ != nullptr) recheckRest(0, event);
}

LinkEvent FrameForwarder::flush() {
  SendResult result;
  std::size_t announced = 0;  // 1 when the capture time of the next frame has been sent, but not the frame
  for (std::size_t done = 0; done < group_.size();) {
    beginOutgoing(*connection_, group_.size());
    for (std::size_t i = done; i < group_.size(); ++i) appendOutgoing(group_[i].frame, i, i < done + announced);
    const Instant begin = keepsSent(*connection_) ? monotonicNow() : Instant(0);
    result = connection_->sendPackets(outgoing_);
    const std::span<const OutgoingFrame> dealtWith(outgoing_.data(), result.dealtWith);
    announced = result.link == LinkEvent::kNone && !dealtWith.empty() && isSentTime(dealtWith.back()) ? 1 : 0;
    done = countDealtWith(done, result, begin);
    if (result.link != LinkEvent::kNone) noteLoss();
    if (result.link == LinkEvent::kUnreachable && lookBack_ == nullptr) dropRest(done);
    if (done < group_.size()) recheckRest(done + announced, result.link);
    // With a look-back, keepConnected() makes the next attempts.
    if (result.link == LinkEvent::kUnreachable && lookBack_ == nullptr) connection_->pause();
  }
  group_.clear();
  return result.link;
}

/// Begins a new send, of at most so many frames.
void FrameForwarder::beginOutgoing(const BaseConnection& connection, std::size_t frames) {
  outgoing_.clear();
  lateSince_ = CaptureTimeFrame::kNever;
  if (!announceCaptureTime_ || connection.announcesCaptureTime()) return;
  timeFrames_.resize(std::max(timeFrames_.size(), frames));
  lateSince_ = CaptureTimeFrame::lateSince();
}

/// Adds a frame to the send, after its capture time if it is late and the time has not been sent.
void FrameForwarder::appendOutgoing(const KeptFrame& frame, std::size_t number, bool isAnnounced) {
  if (!isAnnounced && frame.stamp.seen < lateSince_) {
    timeFrames_[number].write(frame.frame.data(), frame.stamp.seen);
    outgoing_.push_back({timeFrames_[number].data(), timeFrames_[number].length()});
  }
  outgoing_.push_back({frame.frame.data(), static_cast<int>(frame.frame.size()), 0, frame.stamp});
}

/// Counts the frames that were dealt with, from the group's frame `from` on, and keeps what a lost recorder missed.
/// `begin`: when the send began; the send can wait for the recorder. Returns the index of the next frame.
std::size_t FrameForwarder::countDealtWith(std::size_t from, const SendResult& result, Instant begin) {
  std::uint64_t sip = 0, h323 = 0, rtp = 0;
  const bool resends = keepsSent(*connection_);
  for (std::size_t i = 0; i < result.dealtWith; ++i) {
    const OutgoingFrame& frame = outgoing_[i];
    if (isSentTime(frame)) continue;
    const bool isSent = frame.sent == frame.length;
    // A frame whose capture time was not sent is not sent either: the recorder would take it for a timely frame.
    const Entry& entry = group_[from++];
    if (!isSent) {
      if (result.link == LinkEvent::kNone || !keep(entry)) statistics_.notSent.add();
    } else {
      ++(entry.protocol == FrameProtocol::Sip ? sip : entry.protocol == FrameProtocol::H323 ? h323 : rtp);
      if (resends) lookBack_->keepSent(entry.frame, begin);
    }
  }
  // One atomic addition per group: one per frame would be a tenth of the frame's cost.
  if (sip != 0) statistics_.sipForwarded.add(sip);
  if (h323 != 0) statistics_.h323Forwarded.add(h323);
  if (rtp != 0) statistics_.rtpForwarded.add(rtp);
  return from;
}

bool FrameForwarder::keepsSent(const BaseConnection& connection) const {
  return lookBack_ != nullptr && lookBack_->keepsSent() && connection.reportsEachLoss();
}

void FrameForwarder::noteLoss() {
  destinations_.clear();
  if (lookBack_ != nullptr) lookBack_->putBackSent();
}

/// Drops the queue and the rest of the group, which would be old when the recorder is back. The rest of the group
/// counts as if it were still in the queue.
void FrameForwarder::dropRest(std::size_t from) {
  waiting_->clearFromSender(group_.size() - from);
  group_.resize(from);
}

/// Returns false when there is no look-back, or the frame is neither signalling nor media.
bool FrameForwarder::keep(const Entry& entry) {
  if (lookBack_ == nullptr) return false;
  if (entry.isSignalling()) {
    if (entry.origin == Origin::kCaptured) lookBack_->keepSignalling(entry.frame);
    return true;
  }
  const auto payload = entry.frame.frame.subspan(FrameHeader::lengthOf(entry.frame.frame.data()));
  if (!looksLikeMedia(payload.data(), static_cast<int>(payload.size()))) return false;
  lookBack_->keepMedia(entry.frame);
  return true;
}

/// Removes frames from the rest of the group that are no longer to be sent: media whose destination was removed, and
/// signalling that has to wait for the next connection.
void FrameForwarder::recheckRest(std::size_t from, LinkEvent event) {
  const auto isNotSent = [&](const Entry& entry) {
    if (entry.isSignalling()) return event != LinkEvent::kNone && keep(entry);
    if (destinations_.contains(FrameHeader::destinationOf(entry.frame.frame.data()))) return false;
    if (!keep(entry)) statistics_.udpDropped.add();
    return true;
  };
  const auto rest = group_.begin() + static_cast<std::ptrdiff_t>(from);
  group_.erase(std::remove_if(rest, group_.end(), isNotSent), group_.end());
}

// ---- kept frames and replies ----

bool FrameForwarder::sendMissed(BaseConnection& connection, const KeptFrame& frame) {
  connection_ = &connection;
  group_.push_back({frame, FrameHeader::protocolOf(frame.frame.data()), Origin::kMissed});
  if (flush() != LinkEvent::kNone) return false;
  lookBack_->signalling.pop();
  return true;
}

FrameForwarder::KeptSend FrameForwarder::sendKept(BaseConnection& connection, std::span<const KeptFrame> frames) {
  if (frames.empty()) return {};
  beginOutgoing(connection, frames.size());
  for (std::size_t i = 0; i < frames.size(); ++i) appendOutgoing(frames[i], i, false);
  const Instant begin = monotonicNow();
  SendResult result;
  std::size_t done = 0;
  // A capture time is followed by its frame: a live frame in between would be taken for the late one.
  do {
    result = connection.sendPackets(std::span(outgoing_).subspan(done));
    done += result.dealtWith;
  } while (result.link == LinkEvent::kNone && done > 0 && isSentTime(outgoing_[done - 1]));
  std::size_t sent = 0;
  for (const OutgoingFrame& frame : std::span(outgoing_).first(done)) {
    if (frame.sent != frame.length) break;
    if (!isSentTime(frame)) ++sent;
  }
  statistics_.rtpForwarded.add(sent);
  if (keepsSent(connection)) {
    for (const KeptFrame& frame : frames.first(sent)) lookBack_->keepSent(frame, begin);
  }
  return {sent, result.link};
}

void FrameForwarder::dropGroup() {
  statistics_.notSent.add(group_.size());
  group_.clear();
}

void FrameForwarder::sendReply(BaseConnection& connection, bool takesCommands, std::span<std::uint8_t> frame) {
  OutgoingFrame reply{frame.data(), static_cast<int>(frame.size())};
  const LinkEvent event = takesCommands ? connection.sendReply(reply) : connection.sendPackets({&reply, 1}).link;
  if (event == LinkEvent::kNone) return;
  destinations_.clear();
  if (event != LinkEvent::kUnreachable || lookBack_ != nullptr) return;
  waiting_->clear();
  connection.pause();
}

}  // namespace voip
