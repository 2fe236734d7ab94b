#pragma once

#include <span>

#include "recorder/BaseConnection.h"
#include "recorder/SocketAddress.h"

namespace voip {

/// Sends frames as datagrams, many with one system call. Consecutive frames of the same size are sent with segmentation
/// offload (UDP_SEGMENT, udp(7)), from which the kernel makes the same datagrams. The sender notes when the kernel or
/// the path to the recorder does not support this. One thread at a time.
class DatagramSender {
 public:
  /// `sd` is a datagram socket. The caller owns it and must keep it open.
  explicit DatagramSender(int sd);

  /// Sends each frame as one datagram, in order. Stops at the first frame that cannot be sent; errno has the reason.
  /// Returns the number of frames sent. Ignores and does not set the `sent` of a frame.
  std::size_t send(std::span<const OutgoingFrame> frames, const SocketAddress& to);

 private:
  /// As send(), for the frames of one system call. Returns 0 only when the first frame cannot be sent.
  std::size_t sendOnce(std::span<const OutgoingFrame> frames, const SocketAddress& to);

  const int socket_;
  int largestSegment_ = 0;    ///< in bytes, on the path to `last_`; 0 without segmentation offload
  bool kernelKnowsSegments_;  ///< the kernel has UDP_SEGMENT
  SocketAddress last_;        ///< destination of the last group
};

}  // namespace voip
