#include "forwarding/MediaHeader.h"

#include "network/UdpPayload.h"

namespace voip {

bool carriesMedia(const std::uint8_t* frame, u_int length, int linkType, const NetworkOptions& options) {
  const Octets payload = udpPayloadOf({frame, length}, linkType, options);
  return !payload.empty() && looksLikeMedia(payload.data(), static_cast<int>(payload.size()));
}

}  // namespace voip
