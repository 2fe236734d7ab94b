#include "recorder/CommandStream.h"

#include <algorithm>
#include <cstring>

namespace voip {

std::size_t CommandStream::room() const {
  return std::min(kMostAtOnce, ring.size() - total);
}

void CommandStream::append(std::span<const u_char> bytes) {
  const std::size_t first = std::min(bytes.size(), ring.size() - offset);
  std::memcpy(ring.data() + offset, bytes.data(), first);
  std::memcpy(ring.data(), bytes.data() + first, bytes.size() - first);
  offset = (offset + bytes.size()) % ring.size();
  total += bytes.size();
}

bool CommandStream::take(SnifferRequest& request) {
  std::array<u_char, SnifferRequest::kWireLength> wire;
  if (total < wire.size()) return false;
  for (u_char& byte : wire) {
    byte = ring[requestStart];
    requestStart = (requestStart + 1) % ring.size();
  }
  total -= wire.size();
  const SnifferRequest decoded = SnifferRequest::fromWire(wire.data());
  if (decoded.request == SnifferRequest::kHeartbeat) {
    request.request = decoded.request;
  } else {
    request = decoded;
  }
  return true;
}

}  // namespace voip
