#include "UdpConnection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "DottedDecimal.h"

log4cxx::LoggerPtr UdpConnection::logger = log4cxx::Logger::getLogger("SnifferClient");

UdpConnection::UdpConnection(const char* host, int port) : serverPort(port), serverHost(host) {
  serverAddr.sin_family = AF_INET;
  serverAddr.sin_addr.s_addr = inet_addr(serverHost);
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
}

sockaddr_in UdpConnection::recorder() {
  const std::lock_guard guard(serverAddrLock);
  return serverAddr;
}

int UdpConnection::sendPacket(u_char* buffer, int length) {
  const sockaddr_in to = recorder();
  int sent = -1;
  if (!closed) {
    sent = static_cast<int>(sendto(clientSd, buffer, length, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to));
  }
  if (sent != length) {
    logger->error("len=" + std::to_string(length) + ", sent=" + std::to_string(sent) + "\nError sento on socket");
  }
  return sent;
}

bool UdpConnection::receiveRequest(SnifferRequest& request) {
  // What is not a command must not complete one that comes too short: it does not get into the kept bytes.
  static u_char kept[2000];
  u_char received[sizeof kept];
  if (closed) return false;
  sockaddr_in from{};
  socklen_t fromLength = sizeof from;
  const int n = static_cast<int>(
      recvfrom(clientSd, received, sizeof received, 0, reinterpret_cast<sockaddr*>(&from), &fromLength));
  if (n < 0) return false;
  if (serverOnly && from.sin_addr.s_addr != inet_addr(serverHost)) {
    if (observer != nullptr) observer->foreignCommand();
    return false;
  }
  {
    const std::lock_guard guard(serverAddrLock);
    serverAddr = from;
  }
  if (n == 0) return false;
  std::memcpy(kept, received, static_cast<std::size_t>(n));
  request = SnifferRequest::fromWire(kept);
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
