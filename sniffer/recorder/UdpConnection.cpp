#include "recorder/UdpConnection.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "base/Logger.h"

using namespace voip;

UdpConnection::UdpConnection(const char* host, int port)
    : configured_(host, port), serverPort_(port), serverAddr_(configured_) {
  clientSd_ = socket(configured_.family(), SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (clientSd_ == -1) {
    logger().error("Error, client can't open datagram socket");
    std::exit(1);
  }
  fcntl(clientSd_, F_SETFL, fcntl(clientSd_, F_GETFL) | O_NONBLOCK);
  const int on = 1;
  setsockopt(clientSd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const SocketAddress own = configured_.any();
  if (bind(clientSd_, own.data(), own.size()) != 0) {
    logger().error("Error, client bind failed UdpConnection");
    std::exit(1);
  }
  sender_.emplace(clientSd_);
  wait_.watch(clientSd_);
}

SocketAddress UdpConnection::getRecorder() {
  const MutexLock held(serverAddrLock_);
  return serverAddr_;
}

int UdpConnection::sendPacket(u_char* buffer, int length) {
  OutgoingFrame frame{buffer, length};
  sendPackets({&frame, 1});
  return frame.sent;
}

SendResult UdpConnection::sendPackets(std::span<OutgoingFrame> frames) {
  const MutexLock held(sendLock_);
  const std::size_t sent = closed_ ? 0 : sender_->send(frames, getRecorder());
  for (OutgoingFrame& frame : frames.first(sent)) {
    frame.sent = frame.length;
    room_ -= std::min(room_, static_cast<std::size_t>(frame.length));
  }
  if (sent == frames.size()) return {sent};
  OutgoingFrame& failed = frames[sent];
  failed.sent = -1;
  logger().error("len=" + std::to_string(failed.length) + ", sent=" + std::to_string(failed.sent) +
                 "\nError sento on socket");
  return {sent + 1};
}

std::size_t UdpConnection::getRoom() {
  constexpr std::int64_t kMax = 65'536;  // bytes
  constexpr std::int64_t kBytesPerMicrosecond = 16;
  const auto now = std::chrono::steady_clock::now();
  const MutexLock held(sendLock_);
  const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(now - roomAt_).count();
  roomAt_ = now;
  const auto gained = std::min(kMax, std::min(elapsed, kMax) * kBytesPerMicrosecond);
  room_ = std::min(static_cast<std::size_t>(kMax), room_ + static_cast<std::size_t>(gained));
  return room_;
}

bool UdpConnection::receiveRequest(SnifferRequest& request) {
  if (closed_) return false;
  std::array<std::uint8_t, 2000> received;
  SocketAddress from;
  socklen_t fromLength = SocketAddress::capacity();
  const ssize_t n = recvfrom(clientSd_, received.data(), received.size(), 0, from.data(), &fromLength);
  if (n < 0) return false;
  if (serverOnly_ && !from.hasAddressOf(configured_)) {
    if (statistics_ != nullptr) statistics_->commandsIgnored.add();
    return false;
  }
  {
    const MutexLock held(serverAddrLock_);
    serverAddr_ = from;
  }
  if (n == 0) return false;
  // The bytes that a short datagram lacks keep their values from earlier datagrams.
  const auto length = static_cast<std::size_t>(n);
  std::copy_n(received.begin(), std::min(length, command_.size()), command_.begin());
  const bool isIpv6 = SnifferRequest::wireLength(received[0], ipv6_) == SnifferRequest::kIpv6WireLength;
  request = isIpv6 && length >= SnifferRequest::kIpv6WireLength ? SnifferRequest::fromIpv6Wire(received.data())
                                                                : SnifferRequest::fromWire(command_.data());
  if (logger().isDebugEnabled()) {
    logger().debug("rx from server cmd=" + std::to_string(request.request) + ", ip=" + request.address().text() +
                   ", port=" + std::to_string(request.rtpPort) + ", nRcvd=" + std::to_string(n));
  }
  return true;
}

void UdpConnection::closeConnection() {
  // The system may reuse the number of a closed descriptor, so it is closed once and not used afterwards.
  if (!closed_.exchange(true)) close(clientSd_);
}
