#include "UdpConnection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "DottedDecimal.h"

log4cxx::LoggerPtr UdpConnection::logger = log4cxx::Logger::getLogger("SnifferClient");

UdpConnection::UdpConnection(const char* host, int port) : serverPort(port), serverHost(host) {
  serverAddr.sin_family = AF_INET;
  serverAddr.sin_addr.s_addr = serverIp = inet_addr(serverHost);
  serverAddr.sin_port = htons(static_cast<uint16_t>(port));
  clientAddr.sin_family = AF_INET;
  clientAddr.sin_addr.s_addr = htonl(INADDR_ANY);
  clientAddr.sin_port = htons(0);

  clientSd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (clientSd == -1) {
    logger->error("Error, client can't open datagram socket");
    std::exit(1);
  }
  fcntl(clientSd, F_SETFL, fcntl(clientSd, F_GETFL) | O_NONBLOCK);
  const int on = 1;
  setsockopt(clientSd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(clientSd, reinterpret_cast<const sockaddr*>(&clientAddr), sizeof clientAddr) != 0) {
    logger->error("Error, client bind failed UdpConnection");
    std::exit(1);
  }
  sender.emplace(clientSd);
  wait.watch(clientSd);
}

sockaddr_in UdpConnection::recorder() {
  const std::lock_guard guard(serverAddrLock);
  return serverAddr;
}

int UdpConnection::sendPacket(u_char* buffer, int length) {
  OutgoingFrame frame{buffer, length};
  sendPackets({&frame, 1});
  return frame.sent;
}

std::size_t UdpConnection::sendPackets(std::span<OutgoingFrame> frames) {
  const std::lock_guard guard(sendLock);
  const std::size_t sent = closed ? 0 : sender->send(frames, recorder());
  for (OutgoingFrame& frame : frames.first(sent)) frame.sent = frame.length;
  if (sent == frames.size()) return sent;
  OutgoingFrame& failed = frames[sent];
  failed.sent = -1;
  logger->error("len=" + std::to_string(failed.length) + ", sent=" + std::to_string(failed.sent) +
                "\nError sento on socket");
  return sent + 1;
}

bool UdpConnection::receiveRequest(SnifferRequest& request) {
  if (closed) return false;
  std::array<u_char, 2000> received;
  sockaddr_in from{};
  socklen_t fromLength = sizeof from;
  const ssize_t n =
      recvfrom(clientSd, received.data(), received.size(), 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
  if (n < 0) return false;
  if (serverOnly && from.sin_addr.s_addr != serverIp) {
    if (observer != nullptr) observer->foreignCommand();
    return false;
  }
  {
    const std::lock_guard guard(serverAddrLock);
    serverAddr = from;
  }
  if (n == 0) return false;
  // One that is too short is completed by the bytes of those before it.
  std::copy_n(received.begin(), std::min(static_cast<std::size_t>(n), command.size()), command.begin());
  request = SnifferRequest::fromWire(command.data());
  if (logger->isDebugEnabled()) {
    logger->debug("rx from server cmd=" + std::to_string(request.request) + ", ip=" + dottedDecimal(request.rtpAddr) +
                  ", port=" + std::to_string(request.rtpPort) + ", nRcvd=" + std::to_string(n));
  }
  return true;
}

void UdpConnection::closeConnection() {
  // The descriptor's number may belong to someone else afterwards: it is closed once and not used again.
  if (!closed.exchange(true)) close(clientSd);
}
