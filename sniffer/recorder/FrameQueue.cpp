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

void FrameQueue::append(const std::uint8_t* bytes, int length) {
  const std::size_t size = kLengthSize + bytesOf(length);
  std::uint8_t* at = blockWithRoom(size).memory->take(size);
  std::memcpy(at, &length, kLengthSize);
  if (length > 0) std::memcpy(at + kLengthSize, bytes, bytesOf(length));
  ++appended_;
}

FrameQueue::Block& FrameQueue::blockWithRoom(std::size_t size) {
  if (blocks_.empty() || !blocks_.back().memory->hasRoom(size)) {
    auto memory = pool_.take(size);
    std::uint8_t* const start = memory->begin();
    blocks_.push_back({std::move(memory), start});
  }
  return blocks_.back();
}

SnifferPacket FrameQueue::front() const {
  const std::uint8_t* at = blocks_.front().read;
  SnifferPacket packet{0, at + kLengthSize};
  std::memcpy(&packet.length, at, kLengthSize);
  return packet;
}

void FrameQueue::pop() {
  Block& block = blocks_.front();
  block.read += kLengthSize + bytesOf(front().length);
  --published_;
  --appended_;
  if (block.read != block.memory->end()) return;
  if (blocks_.size() == 1) {
    block.read = block.memory->begin();
    block.memory->truncate(block.read);
    return;
  }
  pool_.giveBack(std::move(block.memory));
  blocks_.pop_front();
}

void FrameQueue::clear() {
  blocks_.clear();
  appended_ = published_ = 0;
}

}  // namespace voip
