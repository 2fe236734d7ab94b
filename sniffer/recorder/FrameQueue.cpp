#include "recorder/FrameQueue.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace voip {

namespace {

constexpr std::size_t kLengthSize = sizeof(int);

std::size_t bytesOf(int length) {
  return static_cast<std::size_t>(std::max(length, 0));
}

}  // namespace

// ---- blocks ----

bool FrameQueue::Block::hasRoom(std::size_t size) const {
  return memory->hasRoom(size + (frames + 1) * kLengthSize);
}

int& FrameQueue::Block::length(std::size_t frame) const {
  return reinterpret_cast<int*>(memory->begin() + memory->capacity())[-static_cast<std::ptrdiff_t>(frame) - 1];
}

FrameQueue::Block& FrameQueue::blockWithRoom(std::size_t size) {
  if (blocks_.empty() || !blocks_.back().hasRoom(size)) {
    auto memory = pool_.take(PageBlock::aligned(size + kLengthSize));
    std::uint8_t* const start = memory->begin();
    blocks_.push_back({std::move(memory), start});
  }
  return blocks_.back();
}

// ---- frames ----

void FrameQueue::setKeepsStamps(bool keep) {
  keepsStamps_ = keep;
  stamps_.assign(keep ? appended_ : 0, CaptureStamp{});
}

void FrameQueue::append(const std::uint8_t* bytes, int length, const CaptureStamp& stamp) {
  const std::size_t size = bytesOf(length);
  Block& block = blockWithRoom(size);
  if (keepsStamps_) stamps_.push_back(stamp);
  std::uint8_t* const at = block.memory->take(size);
  if (size > 0) std::memcpy(at, bytes, size);
  block.length(block.frames++) = length;
  ++appended_;
  bytes_ += size;
}

SnifferPacket FrameQueue::oldest() const {
  const Block& block = blocks_.front();
  return {block.length(block.framesRead), block.read};
}

/// Returns true when the frame, counted from the oldest one, still has to be announced.
bool FrameQueue::isLate(std::size_t frame) const {
  return keepsStamps_ && stamps_[frame].seen != 0 && stamps_[frame].seen < lateSince_;
}

SnifferPacket FrameQueue::front() {
  const SnifferPacket frame = oldest();
  if (!isLate(0)) return frame;
  timeFrame_.write(frame.payload, stamps_.front().seen);
  return {timeFrame_.length(), timeFrame_.data()};
}

void FrameQueue::pop() {
  if (isLate(0)) {
    stamps_.front() = {};
  } else {
    remove(1, bytesOf(oldest().length));
  }
}

int FrameQueue::shortestBuffer() const {
  const SnifferPacket frame = oldest();
  return isLate(0) ? std::max(CaptureTimeFrame::lengthFor(frame.payload), frame.length) : frame.length;
}

std::size_t FrameQueue::take(std::span<std::uint8_t> buffer) {
  std::size_t taken = 0;
  while (published_ > 0) {
    if (isLate(0)) {
      // The two stay together, so that no other thread fetches between them.
      const SnifferPacket time = front();
      const std::size_t both = bytesOf(time.length) + bytesOf(oldest().length);
      if (buffer.size() - taken < (taken == 0 ? bytesOf(shortestBuffer()) : both)) break;
      std::memcpy(buffer.data() + taken, time.payload, bytesOf(time.length));
      taken += bytesOf(time.length);
      pop();
    }
    const Block& block = blocks_.front();
    const std::size_t most = std::min(block.frames - block.framesRead, published_);
    std::size_t frames = 0, bytes = 0;
    for (; frames < most && !isLate(frames); ++frames) {
      const std::size_t size = bytesOf(block.length(block.framesRead + frames));
      if (size > buffer.size() - taken - bytes) break;
      bytes += size;
    }
    if (frames == 0) break;
    if (bytes > 0) std::memcpy(buffer.data() + taken, block.read, bytes);
    taken += bytes;
    remove(frames, bytes);
  }
  return taken;
}

/// Removes the oldest `frames` frames, which have `bytes` bytes together and are all in the first block.
void FrameQueue::remove(std::size_t frames, std::size_t bytes) {
  Block& block = blocks_.front();
  block.read += bytes;
  block.framesRead += frames;
  published_ -= frames;
  appended_ -= frames;
  bytes_ -= bytes;
  if (keepsStamps_) stamps_.erase(stamps_.begin(), stamps_.begin() + static_cast<std::ptrdiff_t>(frames));
  if (block.framesRead != block.frames) return;
  if (blocks_.size() == 1) {
    block.read = block.memory->begin();
    block.frames = block.framesRead = 0;
    block.memory->truncate(block.read);
    return;
  }
  pool_.giveBack(std::move(block.memory));
  blocks_.pop_front();
}

void FrameQueue::clear() {
  blocks_.clear();
  stamps_.clear();
  appended_ = published_ = bytes_ = 0;
}

}  // namespace voip
