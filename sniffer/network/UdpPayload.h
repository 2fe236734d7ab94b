#pragma once

#include "network/NetworkOptions.h"
#include "network/Octets.h"

namespace voip {

/// Returns the payload of the UDP datagram in a captured frame, or of the innermost one when the options remove
/// tunnels; nothing when there is none. IPv6 needs its option. For a quick test of the content of a frame: of a
/// fragmented datagram only the first fragment has a payload. `linkType` is a DLT_ value of libpcap. Allocates nothing;
/// at most Decapsulator::kMaxLayers layers are removed. Any thread.
Octets udpPayloadOf(Octets frame, int linkType, const NetworkOptions& options);

}  // namespace voip
