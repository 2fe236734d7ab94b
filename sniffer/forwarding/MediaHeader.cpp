#include "forwarding/MediaHeader.h"

#include <netinet/in.h>

#include "network/LinkLayer.h"

namespace voip {

bool carriesMedia(const std::uint8_t* frame, u_int length, int linkType) {
  constexpr u_int kUdpLength = 8;
  const auto ip = static_cast<u_int>(plainNetworkOffset(readLinkHeader(linkType, {frame, length})));
  if (length < ip + 20 || frame[ip] >> 4 != 4 || frame[ip + 9] != IPPROTO_UDP) return false;
  const u_int payload = ip + (frame[ip] & 0x0F) * 4 + kUdpLength;
  return length > payload && looksLikeMedia(frame + payload, static_cast<int>(length - payload));
}

}  // namespace voip
