#include "recorder/CommandStream.h"

#include <algorithm>
#include <cstring>

namespace voip {

std::size_t CommandStream::room() const {
  return std::min(kMaxAppended, ring_.size() - total_);
}

void CommandStream::append(std::span<const std::uint8_t> bytes) {
  const std::size_t first = std::min(bytes.size(), ring_.size() - offset_);
  std::memcpy(ring_.data() + offset_, bytes.data(), first);
  std::memcpy(ring_.data(), bytes.data() + first, bytes.size() - first);
  offset_ = (offset_ + bytes.size()) % ring_.size();
  total_ += bytes.size();
}

bool CommandStream::take(SnifferRequest& request) {
  std::array<std::uint8_t, SnifferRequest::kWireLength> wire;
  if (total_ < wire.size()) return false;
  for (std::uint8_t& byte : wire) {
    byte = ring_[requestStart_];
    requestStart_ = (requestStart_ + 1) % ring_.size();
  }
  total_ -= wire.size();
  const SnifferRequest decoded = SnifferRequest::fromWire(wire.data());
  if (decoded.request == SnifferRequest::kHeartbeat) {
    request.request = decoded.request;
  } else {
    request = decoded;
  }
  return true;
}

}  // namespace voip
