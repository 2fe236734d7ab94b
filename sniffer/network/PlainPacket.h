#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "network/NetworkSink.h"

namespace voip {

// The plain way from a frame to its payload: IPv4, then UDP or TCP, by as few fields as possible. The version, lengths,
// fragment fields and checksums are ignored: all bytes up to the end of the frame belong to the packet.
//
// `frame` may be written to and is followed by kFrameSlack zeroed bytes; a header may be beyond its end. `isCaptured`
// as in Datagram.

/// Takes the packet whose IP header is at `ipOffset`.
void takeIp(std::span<std::uint8_t> frame, std::size_t ipOffset, bool isCaptured, NetworkSink& sink);

/// Takes the datagram whose UDP header is at `udpOffset`; `ends` has its addresses.
void takeUdp(std::span<std::uint8_t> frame, std::size_t udpOffset, FlowEnds ends, bool isCaptured, NetworkSink& sink);

/// Takes the segment whose TCP header is at `tcpOffset`; `ends` has its addresses.
void takeTcp(std::span<std::uint8_t> frame, std::size_t tcpOffset, FlowEnds ends, NetworkSink& sink);

}  // namespace voip
