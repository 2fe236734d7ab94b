#include "forwarding/FrameForwarder.h"

#include <endian.h>

#include <algorithm>
#include <cstring>

#include "forwarding/MediaHeader.h"

namespace voip {

namespace {

constexpr std::size_t kMostTogether = 128;

void writeTimeFrame(u_char* to, const KeptFrame& announced) {
  FrameHeader header = FrameHeader::of(announced.frame.data());
  header.len = FrameForwarder::kTimeFrameLength;
  header.protocol = FrameProtocol::CaptureTime;
  header.write(to);
  const std::uint64_t time = htobe64(static_cast<std::uint64_t>(announced.stamp.captured));
  std::memcpy(to + FrameHeader::kLength, &time, sizeof time);
}

}  // namespace

void FrameForwarder::configure(bool announceCaptureTime, LookBack* lookBack) {
  announceCaptureTime_ = announceCaptureTime;
  lookBack_ = lookBack;
}

// ---- the group ----

void FrameForwarder::add(BaseConnection& connection, const KeptFrame& frame) {
  if (connection_ != &connection || group_.size() == kMostTogether) flush();
  const Entry entry{frame, FrameHeader::protocolOf(frame.frame.data()), Origin::kCaptured};
  // What the recorder missed comes first.
  if (lookBack_ != nullptr && entry.isSignalling() && !lookBack_->signalling.empty()) {
    lookBack_->keepSignalling(frame);
    return;
  }
  connection_ = &connection;
  group_.push_back(entry);
}

LinkEvent FrameForwarder::flush() {
  SendResult result;
  for (std::size_t done = 0; done < group_.size();) {
    prepare(done);
    result = connection_->sendPackets(outgoing_);
    if (result.link != LinkEvent::kNone) destinations_.clear();
    done = settle(done, result);
    if (result.link == LinkEvent::kUnreachable) loseRecorder(done);
    judgeAnew(done, result.link);
    if (result.link == LinkEvent::kUnreachable) connection_->pause();
  }
  group_.clear();
  return result.link;
}

void FrameForwarder::prepare(std::size_t from) {
  outgoing_.clear();
  if (announceCaptureTime_) timeFrames_.resize(group_.size());
  const std::int64_t lateSince = announceCaptureTime_ ? CaptureStamp::now() - kLate : 0;
  for (std::size_t i = from; i < group_.size(); ++i) prepare(group_[i].frame, i, lateSince);
}

void FrameForwarder::prepare(const KeptFrame& frame, std::size_t number, std::int64_t lateSince) {
  if (announceCaptureTime_ && frame.stamp.seen < lateSince) {
    writeTimeFrame(timeFrames_[number].data(), frame);
    outgoing_.push_back({timeFrames_[number].data(), kTimeFrameLength});
  }
  outgoing_.push_back({frame.frame.data(), static_cast<int>(frame.frame.size())});
}

/// Counts the frames that were dealt with, from the group's frame `from` on. Returns the frame after them.
std::size_t FrameForwarder::settle(std::size_t from, const SendResult& result) {
  std::uint64_t sip = 0, h323 = 0, rtp = 0;
  for (std::size_t i = 0; i < result.dealtWith; ++i) {
    const OutgoingFrame& frame = outgoing_[i];
    const bool isSent = frame.sent == frame.length;
    if (isSent && FrameHeader::protocolOf(frame.bytes) == FrameProtocol::CaptureTime) continue;
    // A frame is lost with its capture time: alone it would be taken for a timely one.
    const Entry& entry = group_[from++];
    if (!isSent) {
      if (result.link == LinkEvent::kNone || !keep(entry)) statistics_.notSent.add();
    } else {
      ++(entry.protocol == FrameProtocol::Sip ? sip : entry.protocol == FrameProtocol::H323 ? h323 : rtp);
    }
  }
  // Once for all: an atomic addition for each frame would be a tenth of its cost.
  if (sip != 0) statistics_.sipForwarded.add(sip);
  if (h323 != 0) statistics_.h323Forwarded.add(h323);
  if (rtp != 0) statistics_.rtpForwarded.add(rtp);
  return from;
}

/// Without a look-back, what waits would be stale when the recorder is back: the rest of the group, too, as if it were
/// still in the queue.
void FrameForwarder::loseRecorder(std::size_t from) {
  if (lookBack_ != nullptr) return;
  queue_.clearFromConsumer(group_.size() - from);
  group_.resize(from);
}

bool FrameForwarder::keep(const Entry& entry) {
  if (lookBack_ == nullptr) return false;
  if (entry.isSignalling()) {
    if (entry.origin == Origin::kCaptured) lookBack_->keepSignalling(entry.frame);
    return true;
  }
  const auto payload = entry.frame.frame.subspan(FrameHeader::kLength);
  if (!looksLikeMedia(payload.data(), static_cast<int>(payload.size()))) return false;
  lookBack_->keepMedia(entry.frame);
  return true;
}

void FrameForwarder::judgeAnew(std::size_t from, LinkEvent event) {
  const auto isOver = [&](const Entry& entry) {
    if (entry.isSignalling()) return event != LinkEvent::kNone && keep(entry);
    const auto header = FrameHeader::of(entry.frame.frame.data());
    if (destinations_.contains({header.dstIp, header.dstPort})) return false;
    if (!keep(entry)) statistics_.udpDropped.add();
    return true;
  };
  const auto rest = group_.begin() + static_cast<std::ptrdiff_t>(from);
  group_.erase(std::remove_if(rest, group_.end(), isOver), group_.end());
}

// ---- frames by themselves ----

bool FrameForwarder::sendMissed(BaseConnection& connection, const KeptFrame& frame) {
  connection_ = &connection;
  group_.push_back({frame, FrameHeader::protocolOf(frame.frame.data()), Origin::kMissed});
  if (flush() != LinkEvent::kNone) {
    lookBack_->signalling.fail(monotonicNow());
    return false;
  }
  lookBack_->signalling.pop();
  return true;
}

std::size_t FrameForwarder::sendKept(BaseConnection& connection, std::span<const KeptFrame> frames) {
  if (frames.empty()) return 0;
  outgoing_.clear();
  if (announceCaptureTime_) timeFrames_.resize(std::max(timeFrames_.size(), frames.size()));
  const std::int64_t lateSince = announceCaptureTime_ ? CaptureStamp::now() - kLate : 0;
  for (std::size_t i = 0; i < frames.size(); ++i) prepare(frames[i], i, lateSince);
  const SendResult result = connection.sendPackets(outgoing_);
  std::size_t sent = 0;
  for (const OutgoingFrame& frame : std::span(outgoing_).first(result.dealtWith)) {
    if (frame.sent != frame.length) break;
    if (FrameHeader::protocolOf(frame.bytes) != FrameProtocol::CaptureTime) ++sent;
  }
  statistics_.rtpForwarded.add(sent);
  if (result.link != LinkEvent::kNone) destinations_.clear();
  if (result.link == LinkEvent::kUnreachable) connection.pause();
  return sent;
}

void FrameForwarder::dropGroup() {
  statistics_.notSent.add(group_.size());
  group_.clear();
}

void FrameForwarder::sendReply(BaseConnection& connection, bool takesCommands, std::span<u_char> frame) {
  OutgoingFrame reply{frame.data(), static_cast<int>(frame.size())};
  const LinkEvent event = takesCommands ? connection.sendReply(reply) : connection.sendPackets({&reply, 1}).link;
  if (event == LinkEvent::kNone) return;
  destinations_.clear();
  if (event != LinkEvent::kUnreachable) return;
  if (lookBack_ == nullptr) queue_.clear();
  connection.pause();
}

}  // namespace voip
