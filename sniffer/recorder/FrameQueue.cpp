#include "FrameQueue.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t kBlockSize = 128 << 10;  // the longest frame fits
constexpr std::size_t kMostSpare = 8;
constexpr std::size_t kLengthSize = sizeof(int);

std::size_t bytesOf(int length) {
  return static_cast<std::size_t>(std::max(length, 0));
}

}  // namespace

void FrameQueue::append(const u_char* bytes, int length) {
  Block& block = blockWithRoom(kLengthSize + bytesOf(length));
  u_char* at = block.bytes.get() + block.written;
  std::memcpy(at, &length, kLengthSize);
  if (length > 0) std::memcpy(at + kLengthSize, bytes, bytesOf(length));
  block.written += kLengthSize + bytesOf(length);
  ++appended;
}

FrameQueue::Block& FrameQueue::blockWithRoom(std::size_t size) {
  if (!blocks.empty() && blocks.back().capacity - blocks.back().written >= size) return blocks.back();
  if (size > kBlockSize || spare.empty()) return blocks.emplace_back(std::max(size, kBlockSize));
  blocks.push_back(std::move(spare.back()));
  spare.pop_back();
  return blocks.back();
}

SnifferPacket FrameQueue::front() const {
  const Block& block = blocks.front();
  SnifferPacket packet{0, block.bytes.get() + block.read + kLengthSize};
  std::memcpy(&packet.length, packet.payload - kLengthSize, kLengthSize);
  return packet;
}

void FrameQueue::pop() {
  Block& block = blocks.front();
  block.read += kLengthSize + bytesOf(front().length);
  --published;
  --appended;
  if (block.read < block.written) return;
  if (blocks.size() == 1) {
    block.read = block.written = 0;
    return;
  }
  putAside(std::move(block));
  blocks.pop_front();
}

void FrameQueue::putAside(Block block) {
  if (block.capacity != kBlockSize || spare.size() == kMostSpare) return;
  block.read = block.written = 0;
  spare.push_back(std::move(block));
}

void FrameQueue::clear() {
  blocks.clear();
  appended = published = 0;
}
