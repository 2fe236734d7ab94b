#pragma once

#include <sys/types.h>

#include <cstdint>

#include "network/NetworkOptions.h"

namespace voip {

/// Returns true when a UDP payload of `length` bytes looks like RTP or RTCP: version 2 and long enough for a header
/// (RFC 3550). STUN and DTLS on the same port begin differently (RFC 7983). Any thread.
inline bool looksLikeMedia(const std::uint8_t* payload, int length) {
  constexpr int kShortest = 8;  // an RTCP receiver report without a report
  return length >= kShortest && (payload[0] & 0xC0) == 0x80;
}

/// As looksLikeMedia(), for a captured frame of `length` bytes with IP and UDP, the link-layer header first: a quick
/// test that decides which frames a full queue drops first. `linkType` is libpcap's DLT_ value. With the options, media
/// in tunnels and over IPv6 counts, too. Any thread.
bool carriesMedia(const std::uint8_t* frame, u_int length, int linkType, const NetworkOptions& options);

}  // namespace voip
