#include "forwarding/CatchUp.h"

#include <algorithm>

namespace voip {

namespace {

constexpr std::size_t kMaxTogether = 64;  // frames

/// Returns the first frames, as many as fit into `room` bytes, but at least one.
std::span<const KeptFrame> fitting(std::span<const KeptFrame> frames, std::size_t room) {
  std::size_t count = 0;
  for (; count < frames.size() && frames[count].frame.size() <= room; ++count) room -= frames[count].frame.size();
  return frames.first(std::min(frames.size(), std::max<std::size_t>(count, 1)));
}

}  // namespace

void CatchUp::takeRequests() {
  if (lookBack_ == nullptr) return;
  for (const IpEndpoint& destination : recalls_.take()) {
    if (waiting_.size() == destinations_.limit()) break;  // many of them were removed again
    if (held_.insert(destination).second) waiting_.push_back({destination, monotonicNow()});
  }
  if (isActive()) lookBack_->media.stopTime(waiting_.front().at);
}

bool CatchUp::step() {
  if (!isActive()) return false;
  const IpEndpoint destination = waiting_.front().destination;
  if (!destinations_.contains(destination)) {  // removed by a command, or because the recorder was lost
    finishFirst();
    return isActive();
  }
  if (!isRecalling_ && !lookBack_->media.beginRecall(destination)) {
    finishFirst();
    return isActive();
  }
  isRecalling_ = true;
  if (lookBack_->media.lookUpMore()) return true;
  BaseConnection& connection = *links_.getMedia();
  const std::size_t room = connection.getRoom();
  if (room == 0) return false;
  forwarder_.flush();  // first, since it may keep frames
  const auto frames = fitting(lookBack_->media.peekRecalled(kMaxTogether), room);
  const FrameForwarder::KeptSend sent = forwarder_.sendKept(connection, frames);
  lookBack_->media.popRecalled(sent.frames);
  if (sent.link != LinkEvent::kNone) forwarder_.noteLoss();
  // Frames that were kept meanwhile need another recall, which the next step begins.
  if (frames.empty()) isRecalling_ = false;
  return true;
}

void CatchUp::finishFirst() {
  if (isRecalling_) lookBack_->media.cancelRecall();
  isRecalling_ = false;
  held_.erase(waiting_.front().destination);
  waiting_.pop_front();
  lookBack_->media.stopTime(isActive() ? std::optional(waiting_.front().at) : std::nullopt);
}

}  // namespace voip
