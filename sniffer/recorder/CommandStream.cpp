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
  if (!hasWhole()) return false;
  std::array<std::uint8_t, SnifferRequest::kIpv6WireLength> wire{};
  const std::size_t length = nextLength();
  for (std::uint8_t& byte : std::span(wire).first(length)) {
    byte = ring_[requestStart_];
    requestStart_ = (requestStart_ + 1) % ring_.size();
  }
  total_ -= length;
  const bool isIpv6 = length == SnifferRequest::kIpv6WireLength;
  const SnifferRequest decoded =
      isIpv6 ? SnifferRequest::fromIpv6Wire(wire.data()) : SnifferRequest::fromWire(wire.data());
  if (decoded.request == SnifferRequest::kHeartbeat) {
    request.request = decoded.request;
  } else {
    request = decoded;
  }
  return true;
}

}  // namespace voip
