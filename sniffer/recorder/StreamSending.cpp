#include "recorder/StreamSending.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "base/Logger.h"

namespace voip {

namespace {

constexpr std::size_t kMaxTogether = 65536;  // bytes of one system call, unless it is one frame
constexpr std::size_t kMaxReplies = 65536;   // bytes

std::span<const std::uint8_t> bytesOf(const OutgoingFrame& frame) {
  return {frame.bytes, static_cast<std::size_t>(frame.length)};
}

}  // namespace

// ---- groups ----

StreamSending::GroupSend StreamSending::sendTogether(std::span<OutgoingFrame> frames) {
  GroupSend group{gather(frames)};
  group.rest = socket_.sendBytes(group.tried > 1 ? std::span<const std::uint8_t>(together_) : bytesOf(frames[0]));
  while (group.whole < group.tried && group.rest >= frames[group.whole].length) {
    OutgoingFrame& frame = frames[group.whole++];
    group.rest -= frame.sent = frame.length;
  }
  return group;
}

/// Copies the first frames to `together_`, unless there is only one. Returns their number, at least 1.
std::size_t StreamSending::gather(std::span<const OutgoingFrame> frames) {
  // A copy costs less than half of what the kernel needs to gather the pieces.
  together_.clear();
  std::size_t size = 0;
  for (const OutgoingFrame& frame : frames) {
    if (frame.bytes == nullptr || frame.length < 1) break;
    if (together_.size() + static_cast<std::size_t>(frame.length) > kMaxTogether) break;
    if (frames.size() > 1) together_.insert(together_.end(), frame.bytes, frame.bytes + frame.length);
    ++size;
  }
  return std::max<std::size_t>(size, 1);
}

// ---- accounted ----

SendProgress AccountedSending::send(std::span<OutgoingFrame> frames) {
  const GroupSend group = sendTogether(frames);
  if (group.endsBetweenFrames()) return {group.whole};
  OutgoingFrame& frame = frames[group.whole];
  frame.sent = finish(bytesOf(frame), group.rest);
  return {group.whole + 1, frame.sent == frame.length};
}

int AccountedSending::finish(std::span<const std::uint8_t> frame, ssize_t sentNow) {
  const auto length = static_cast<ssize_t>(frame.size());
  ssize_t sent = 0;
  while (true) {
    if (sentNow == -1) {
      if (socket_.checkError(errno) != 0) break;
    } else if (sentNow == length) {
      sent += sentNow;
    } else if (length - sent > sentNow) {
      logger().warn("Sent nSent=" + std::to_string(sentNow) + " bytes of " + std::to_string(length));
      sent += sentNow;
    }
    if (sent == length) break;
    sentNow = socket_.sendBytes(frame.subspan(static_cast<std::size_t>(sent)));
  }
  return static_cast<int>(sent);
}

// ---- exact ----

SendProgress ExactSending::send(std::span<OutgoingFrame> frames) {
  if (!sendReplies()) return {0, false};
  const GroupSend group = sendTogether(frames);
  if (group.endsBetweenFrames()) return {group.whole};
  OutgoingFrame& frame = frames[group.whole];
  ssize_t sentNow = group.rest;
  Patience patience = Patience::kYes;
  if (sentNow == -1 && errno == EAGAIN) {
    const auto room = socket_.waitForRoom(group.tried);
    // A frame that waited before its first byte is returned to the caller unsent: it may be late now.
    if (room != StreamSocket::Room::kNotInTime) return {0, false};
    // Too little space counts as none. After the time-out the frame is tried once more, in case some space is free.
    patience = Patience::kNo;
    sentNow = socket_.sendBytes(bytesOf(frame));
  }
  const Finish finished = finish(bytesOf(frame), sentNow, group.tried - group.whole, patience);
  // The stream ended within the frame: the caller sends the whole frame on the next stream.
  if (finished.isClosed) return {group.whole, false};
  frame.sent = finished.sent;
  // After a wait the other frames may be late.
  return {group.whole + 1, frame.sent == frame.length && !finished.hasWaited};
}

ExactSending::Finish ExactSending::finish(std::span<const std::uint8_t> frame, ssize_t sentNow, std::size_t heldUp,
                                          Patience patience) {
  Finish result;
  std::size_t sent = 0;
  while (true) {
    if (sentNow == -1 && errno == EAGAIN && patience == Patience::kYes) {
      const auto room = socket_.waitForRoom(heldUp);
      result.hasWaited = true;
      result.isClosed = room == StreamSocket::Room::kClosed;
      if (result.isClosed) break;
      // As in send().
      if (room == StreamSocket::Room::kNotInTime) patience = Patience::kNo;
    } else if (sentNow == -1) {
      if (socket_.checkError(errno) != 0) break;
    } else {
      sent += static_cast<std::size_t>(sentNow);
      patience = Patience::kYes;
    }
    if (sent == frame.size()) break;
    sentNow = socket_.sendBytes(frame.subspan(sent));
  }
  result.sent = static_cast<int>(sent);
  return result;
}

bool ExactSending::addReply(std::span<const std::uint8_t> reply) {
  if (replies_.size() + reply.size() > kMaxReplies) return false;
  replies_.insert(replies_.end(), reply.begin(), reply.end());
  return true;
}

void ExactSending::sendRepliesNow() {
  const ssize_t sent = socket_.sendBytes(replies_);
  if (sent > 0) {
    replies_.erase(replies_.begin(), replies_.begin() + sent);
  } else if (errno != EAGAIN) {
    socket_.checkError(errno);
  }
}

bool ExactSending::sendReplies() {
  while (!replies_.empty()) {
    // Further replies may be added while these wait for space.
    const std::vector<std::uint8_t> now = std::exchange(replies_, {});
    if (finish(now, socket_.sendBytes(now), 1, Patience::kYes).sent < static_cast<int>(now.size())) return false;
  }
  return true;
}

}  // namespace voip
