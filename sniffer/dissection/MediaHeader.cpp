#include "MediaHeader.h"

#include <netinet/in.h>
#include <pcap/pcap.h>

namespace {

constexpr u_int kUdpLength = 8;

u_int linkLength(const u_char* frame, u_int length, int linkType) {
  switch (linkType) {
    case DLT_RAW:
    case DLT_IPV4:
      return 0;
    case DLT_NULL:
    case DLT_LOOP:
      return 4;
    case DLT_LINUX_SLL:
      return 16;
    case DLT_LINUX_SLL2:
      return 20;
    default:
      break;
  }
  u_int at = 14;
  const auto isTag = [&] {
    return (frame[at - 2] == 0x81 && frame[at - 1] == 0) || (frame[at - 2] == 0x88 && frame[at - 1] == 0xA8);
  };
  for (int tags = 0; tags < 2 && length > at + 4 && isTag(); ++tags) at += 4;
  return at;
}

}  // namespace

bool carriesMedia(const u_char* frame, u_int length, int linkType) {
  const u_int ip = linkLength(frame, length, linkType);
  if (length < ip + 20 || frame[ip] >> 4 != 4 || frame[ip + 9] != IPPROTO_UDP) return false;
  const u_int payload = ip + (frame[ip] & 0x0F) * 4 + kUdpLength;
  return length > payload && looksLikeMedia(frame + payload, static_cast<int>(length - payload));
}
