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

constexpr std::size_t kMaxFrames = 128;
constexpr std::size_t kMaxSegments = 64;
constexpr int kMaxBytes = 65507;  // of one send over IPv4 (over IPv6 a few more), segments included

/// Returns how many frames, from the first on, can be segments of one send: all have the same size, the last may be
/// shorter.
std::size_t lengthOfRun(std::span<const OutgoingFrame> frames, int largestSegment) {
  const int size = frames[0].length;
  if (size < 1 || size > largestSegment) return 1;
  const std::size_t longest = std::min({frames.size(), kMaxSegments, static_cast<std::size_t>(kMaxBytes / size)});
  std::size_t run = 1;
  while (run < longest && frames[run].length == size) ++run;
  if (run < longest && frames[run].length > 0 && frames[run].length < size) ++run;
  return run;
}

/// The messages of one system call.
class Messages {
 public:
  Messages(std::span<const OutgoingFrame> frames, const SocketAddress& to, int largestSegment) {
    frames = frames.first(std::min(frames.size(), kMaxFrames));
    for (std::size_t at = 0; at < frames.size(); at += frameCounts_[count_ - 1]) {
      add(frames.subspan(at, lengthOfRun(frames.subspan(at), largestSegment)), at, to);
    }
  }

  /// Returns the number of frames sent.
  std::size_t send(int socket) {
    const int sent = sendmmsg(socket, headers_.data(), static_cast<unsigned>(count_), 0);
    std::size_t frames = 0;
    for (int i = 0; i < sent; ++i) frames += frameCounts_[static_cast<std::size_t>(i)];
    return frames;
  }

  bool beginsWithSegments() const { return frameCounts_[0] > 1; }

 private:
  void add(std::span<const OutgoingFrame> run, std::size_t at, const SocketAddress& to) {
    for (std::size_t i = 0; i < run.size(); ++i) {
      pieces_[at + i] = {run[i].bytes, static_cast<std::size_t>(run[i].length)};
    }
    msghdr& header = headers_[count_].msg_hdr;
    header = {};
    header.msg_name = const_cast<sockaddr*>(to.data());
    header.msg_namelen = to.size();
    header.msg_iov = &pieces_[at];
    header.msg_iovlen = run.size();
    if (run.size() > 1) markAsSegments(header, static_cast<std::uint16_t>(run[0].length));
    frameCounts_[count_++] = run.size();
  }

  void markAsSegments(msghdr& header, std::uint16_t size) {
    header.msg_control = controls_[count_].data;
    header.msg_controllen = sizeof controls_[count_].data;
    cmsghdr* control = CMSG_FIRSTHDR(&header);
    control->cmsg_level = SOL_UDP;
    control->cmsg_type = UDP_SEGMENT;
    control->cmsg_len = CMSG_LEN(sizeof size);
    std::memcpy(CMSG_DATA(control), &size, sizeof size);
  }

  struct Control {
    alignas(cmsghdr) char data[CMSG_SPACE(sizeof(std::uint16_t))];
  };

  std::size_t count_ = 0;
  std::array<mmsghdr, kMaxFrames> headers_;
  std::array<std::size_t, kMaxFrames> frameCounts_;
  std::array<iovec, kMaxFrames> pieces_;
  std::array<Control, kMaxFrames> controls_;
};

}  // namespace

DatagramSender::DatagramSender(int sd) : socket_(sd) {
  int value = 0;
  socklen_t size = sizeof value;
  // A kernel without UDP_SEGMENT would send the segments as one datagram.
  kernelKnowsSegments_ = getsockopt(sd, SOL_UDP, UDP_SEGMENT, &value, &size) == 0;
}

std::size_t DatagramSender::send(std::span<const OutgoingFrame> frames, const SocketAddress& to) {
  if (frames.size() == 1) {
    const auto length = static_cast<std::size_t>(frames[0].length);
    return sendto(socket_, frames[0].bytes, length, 0, to.data(), to.size()) == -1 ? 0 : 1;
  }
  if (!to.hasAddressOf(last_)) {
    last_ = to;
    largestSegment_ = kernelKnowsSegments_ ? kMaxBytes : 0;
  }
  std::size_t sent = 0;
  while (sent < frames.size()) {
    const std::size_t more = sendOnce(frames.subspan(sent), to);
    if (more == 0) break;
    sent += more;
  }
  return sent;
}

std::size_t DatagramSender::sendOnce(std::span<const OutgoingFrame> frames, const SocketAddress& to) {
  Messages messages(frames, to, largestSegment_);
  if (const std::size_t sent = messages.send(socket_); sent > 0 || !messages.beginsWithSegments()) return sent;
  const int error = errno;
  // One datagram per frame shows which frame fails.
  const std::size_t sent = Messages(frames, to, 0).send(socket_);
  // The path takes no segments of this size (a larger datagram leaves in fragments), or none at all. Any other error
  // may be temporary.
  if (sent > 0 && (error == EINVAL || error == EMSGSIZE)) largestSegment_ = frames[0].length - 1;
  if (sent > 0 && (error == EIO || error == EOPNOTSUPP)) largestSegment_ = 0;
  return sent;
}

}  // namespace voip
