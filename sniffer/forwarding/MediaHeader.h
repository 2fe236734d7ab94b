#pragma once

#include <sys/types.h>

namespace voip {

/// True when a UDP payload of `length` bytes looks like RTP or RTCP: version 2, and room for a header (RFC 3550).
/// Neither STUN nor DTLS on the same port begins like that (RFC 7983).
inline bool looksLikeMedia(const u_char* payload, int length) {
  constexpr int kShortest = 8;  // an RTCP receiver report without a report
  return length >= kShortest && (payload[0] & 0xC0) == 0x80;
}

/// The same for a whole frame with IPv4 and UDP: a quick look, for the order in which frames are dropped when there is
/// no room. `linkType` is libpcap's DLT_ value.
bool carriesMedia(const u_char* frame, u_int length, int linkType);

}  // namespace voip
