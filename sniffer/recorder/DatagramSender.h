#pragma once

#include <netinet/in.h>

#include <span>

#include "recorder/BaseConnection.h"

namespace voip {

/// Sends frames as datagrams, many with one system call. Where neighbours are of the same size they go as segments of
/// one send (UDP_SEGMENT, udp(7)), which the kernel cuts into the same datagrams; it is remembered when the kernel or
/// the path to the recorder does not do that. For one thread at a time.
class DatagramSender {
 public:
  /// `sd` stays the caller's.
  explicit DatagramSender(int sd);

  /// Sends in order, until one cannot be sent. Answers how many went out; errno then tells of the one behind them.
  std::size_t send(std::span<const OutgoingFrame> frames, const sockaddr_in& to);

 private:
  /// The same for as many as fit one system call: none only when the first cannot be sent.
  std::size_t sendOnce(std::span<const OutgoingFrame> frames, const sockaddr_in& to);

  int socket;
  int largestSegment = 0;  ///< 0: each frame by itself
  bool segmentsKnown;      ///< to this kernel
  sockaddr_in last{};      ///< what is remembered belongs to the path to here
};

}  // namespace voip
