#include "recorder/DatagramSender.h"

#include <netinet/udp.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace voip {

namespace {

constexpr std::size_t kMostFrames = 128;
constexpr std::size_t kMostSegments = 64;
constexpr int kMostBytes = 65507;  // of one send over IPv4, whatever it is cut into

/// How many of the frames, from the first on, can be segments of one send: of one size, the last may be shorter.
std::size_t lengthOfRun(std::span<const OutgoingFrame> frames, int largestSegment) {
  const int size = frames[0].length;
  if (size < 1 || size > largestSegment) return 1;
  const std::size_t most = std::min({frames.size(), kMostSegments, static_cast<std::size_t>(kMostBytes / size)});
  std::size_t run = 1;
  while (run < most && frames[run].length == size) ++run;
  if (run < most && frames[run].length > 0 && frames[run].length < size) ++run;
  return run;
}

/// The messages of one system call.
class Messages {
 public:
  Messages(std::span<const OutgoingFrame> frames, const sockaddr_in& to, int largestSegment) {
    frames = frames.first(std::min(frames.size(), kMostFrames));
    for (std::size_t at = 0; at < frames.size(); at += frameCounts[count - 1]) {
      add(frames.subspan(at, lengthOfRun(frames.subspan(at), largestSegment)), at, to);
    }
  }

  /// Answers how many frames went out.
  std::size_t send(int socket) {
    const int sent = sendmmsg(socket, headers.data(), static_cast<unsigned>(count), 0);
    std::size_t frames = 0;
    for (int i = 0; i < sent; ++i) frames += frameCounts[static_cast<std::size_t>(i)];
    return frames;
  }

  bool beginWithSegments() const { return frameCounts[0] > 1; }

 private:
  void add(std::span<const OutgoingFrame> run, std::size_t at, const sockaddr_in& to) {
    for (std::size_t i = 0; i < run.size(); ++i) {
      pieces[at + i] = {run[i].bytes, static_cast<std::size_t>(run[i].length)};
    }
    msghdr& header = headers[count].msg_hdr;
    header = {};
    header.msg_name = const_cast<sockaddr_in*>(&to);
    header.msg_namelen = sizeof to;
    header.msg_iov = &pieces[at];
    header.msg_iovlen = run.size();
    if (run.size() > 1) markAsSegments(header, static_cast<std::uint16_t>(run[0].length));
    frameCounts[count++] = run.size();
  }

  void markAsSegments(msghdr& header, std::uint16_t size) {
    header.msg_control = controls[count].data;
    header.msg_controllen = sizeof controls[count].data;
    cmsghdr* control = CMSG_FIRSTHDR(&header);
    control->cmsg_level = SOL_UDP;
    control->cmsg_type = UDP_SEGMENT;
    control->cmsg_len = CMSG_LEN(sizeof size);
    std::memcpy(CMSG_DATA(control), &size, sizeof size);
  }

  struct Control {
    alignas(cmsghdr) char data[CMSG_SPACE(sizeof(std::uint16_t))];
  };

  std::size_t count = 0;
  std::array<mmsghdr, kMostFrames> headers;
  std::array<std::size_t, kMostFrames> frameCounts;
  std::array<iovec, kMostFrames> pieces;
  std::array<Control, kMostFrames> controls;
};

}  // namespace

DatagramSender::DatagramSender(int sd) : socket(sd) {
  int value = 0;
  socklen_t size = sizeof value;
  // A kernel that does not know segments would send them as one datagram.
  segmentsKnown = getsockopt(sd, SOL_UDP, UDP_SEGMENT, &value, &size) == 0;
}

std::size_t DatagramSender::send(std::span<const OutgoingFrame> frames, const sockaddr_in& to) {
  if (frames.size() == 1) {
    const auto length = static_cast<std::size_t>(frames[0].length);
    return sendto(socket, frames[0].bytes, length, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) == -1 ? 0 : 1;
  }
  if (to.sin_addr.s_addr != last.sin_addr.s_addr) {
    last = to;
    largestSegment = segmentsKnown ? kMostBytes : 0;
  }
  std::size_t sent = 0;
  while (sent < frames.size()) {
    const std::size_t more = sendOnce(frames.subspan(sent), to);
    if (more == 0) break;
    sent += more;
  }
  return sent;
}

std::size_t DatagramSender::sendOnce(std::span<const OutgoingFrame> frames, const sockaddr_in& to) {
  Messages messages(frames, to, largestSegment);
  if (const std::size_t sent = messages.send(socket); sent > 0 || !messages.beginWithSegments()) return sent;
  const int error = errno;
  // One by one: so each frame gets its own verdict.
  const std::size_t sent = Messages(frames, to, 0).send(socket);
  // Too large for a segment there (it goes out in fragments), or no segments there at all; what may pass is not kept.
  if (sent > 0 && (error == EINVAL || error == EMSGSIZE)) largestSegment = frames[0].length - 1;
  if (sent > 0 && (error == EIO || error == EOPNOTSUPP)) largestSegment = 0;
  return sent;
}

}  // namespace voip
