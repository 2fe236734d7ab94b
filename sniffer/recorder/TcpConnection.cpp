#include "TcpConnection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include "DottedDecimal.h"

namespace {

constexpr int kSendBufferSize = 60000;
constexpr int kReceiveSize = 2000;
constexpr int kRingSize = 4000;

/// Received bytes that are not decoded yet. There is one for the process: commands come from one connection.
struct CommandRing {
  u_char workBuffer[kReceiveSize];
  u_char buffer[kRingSize];
  int offset = 0;        // where the next received byte goes
  int requestStart = 0;  // first byte of the next command
  int total = 0;         // bytes waiting
  unsigned stream = 0;   // the connection that they came from

  int room() const { return std::min(kReceiveSize, kRingSize - total); }

  void append(int n) {
    const int first = std::min(n, kRingSize - offset);
    std::memcpy(buffer + offset, workBuffer, first);
    std::memcpy(buffer, workBuffer + first, n - first);
    offset = (offset + n) % kRingSize;
    total += n;
  }

  void take(u_char* command) {
    for (int i = 0; i < SnifferRequest::kWireLength; ++i) command[i] = buffer[(requestStart + i) % kRingSize];
    requestStart = (requestStart + SnifferRequest::kWireLength) % kRingSize;
    total -= SnifferRequest::kWireLength;
  }

  void restart(unsigned newStream) {
    offset = requestStart = total = 0;
    stream = newStream;
  }
};

CommandRing ring;

/// For a connection that nobody owns yet.
class Nobody final : public LinkObserver {
  void linkEstablished() override {}
  void linkLost() override {}
  void forgetDestinations() override {}
  void discardWaiting() override {}
  void waitedForRoom(std::chrono::milliseconds, std::size_t) override {}
  void foreignCommand() override {}
} nobody;

void decode(const u_char* wire, SnifferRequest& request, log4cxx::LoggerPtr& logger) {
  constexpr u_short kHeartbeat = 3;
  const SnifferRequest decoded = SnifferRequest::fromWire(wire);
  if (decoded.request == kHeartbeat) {
    request.request = kHeartbeat;
    if (logger->isDebugEnabled()) logger->debug("Heartbeat request received");
    return;
  }
  request = decoded;
  if (!logger->isDebugEnabled()) return;
  logger->debug("rx from server cmd=" + std::to_string(request.request) + ", ip=" + dottedDecimal(request.rtpAddr) +
                ", port=" + std::to_string(request.rtpPort));
}

}  // namespace

log4cxx::LoggerPtr TcpConnection::logger = log4cxx::Logger::getLogger("SnifferClient");

TcpConnection::TcpConnection(const char* host, int port) : observer(&nobody), serverPort(port), serverHost(host) {
  serverAddr.sin_family = AF_INET;
  serverAddr.sin_addr.s_addr = inet_addr(host);
  serverAddr.sin_port = htons(static_cast<uint16_t>(port));
  logConnecting();
}

TcpConnection::~TcpConnection() {
  TcpConnection::closeConnection();
}

void TcpConnection::logConnecting() const {
  logger->info("Connecting to recorder " + std::string(serverHost) + ":" + std::to_string(serverPort));
}

int TcpConnection::getSocket() {
  const int sd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
  if (sd == -1) {
    logger->error("Unable to create TCP connection.");
    return -1;
  }
  fcntl(sd, F_SETFL, fcntl(sd, F_GETFL) | O_NONBLOCK);
  const int on = 1;
  setsockopt(sd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  int size = 0;
  socklen_t length = sizeof size;
  if (getsockopt(sd, SOL_SOCKET, SO_SNDBUF, &size, &length) != 0) logger->warn("Error getsockopt");
  size = kSendBufferSize;
  // The same words for both failures: operators' log filters look for them.
  if (setsockopt(sd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size) != 0) logger->warn("Error getsockopt");
  logger->info("Tcp socket send buffer size=" + std::to_string(kSendBufferSize));
  return sd;
}

void TcpConnection::tcpConnect() {
  const std::lock_guard guard(lock);
  if (clientSd == -1) clientSd = getSocket();
  if (clientSd == -1) return;
  if (connect(clientSd, reinterpret_cast<const sockaddr*>(&serverAddr), sizeof serverAddr) == 0) {
    setConnected();
    return;
  }
  // The socket stays: a later attempt on it tells how this one went.
  const int error = errno;
  if (error == EALREADY) return;
  if (error == EINPROGRESS) {
    logger->debug("Connecting ...");
  } else {
    logger->debug("TCP connect failed with errno=" + std::to_string(error));
  }
}

void TcpConnection::setConnected() {
  static std::atomic<unsigned> established = 0;
  stream = ++established;
  connected = true;
  observer->linkEstablished();
}

int TcpConnection::sendPacket(u_char* buffer, int length) {
  if (buffer == nullptr || length < 1) return 0;
  {
    const std::lock_guard guard(lock);
    if (connected || reconnect()) return sendFrame(buffer, length);
    if (connectRetries++ == 0) logConnecting();
  }
  rejectFrame();
  return -1;
}

bool TcpConnection::reconnect() {
  tcpConnect();
  if (!connected) return false;
  logger->info("Connected to recorder " + std::string(serverHost) + ":" + std::to_string(serverPort));
  return true;
}

void TcpConnection::rejectFrame() {
  observer->forgetDestinations();
  observer->discardWaiting();
  rest(1, 0);
}

int TcpConnection::sendFrame(const u_char* buffer, int length) {
  connectRetries = 0;
  int sent = 0;
  int stop = 0;
  while (sent < length && stop == 0) {
    // MSG_NOSIGNAL: a recorder that went away is an error to handle, never the end of the process.
    const int n = static_cast<int>(send(clientSd, buffer + sent, length - sent, MSG_NOSIGNAL));
    if (n == -1) {
      stop = checkError(errno);
    } else if (n == length) {
      sent += n;
    } else if (length - sent > n) {
      logger->warn("Sent nSent=" + std::to_string(n) + " bytes of " + std::to_string(length));
      sent += n;
    }
    // A short send that completes the frame is not counted, and the rest goes out again: recorders in the field know
    // this stream, so it stays.
  }
  return sent;
}

int TcpConnection::checkError(int errnum) {
  logger->warn("Send error=" + std::to_string(errnum));
  switch (errnum) {
    case EINTR:
      logger->warn("Interrupted while sending - will continue sending.");
      return 0;
    case EMSGSIZE:
    case ENOBUFS:
      logger->warn("Packet too large to send.");
      return -1;
    case EPIPE:
      logger->warn("Connection to recorder lost.");
      break;
    case EAGAIN:
      logger->warn("Can not send. Connection to recorder lost.");
      break;
    default:
      logger->warn("Connection to recorder not working");
  }
  observer->linkLost();
  closeConnection();
  observer->forgetDestinations();
  return -1;
}

void TcpConnection::rest(long seconds, long nanoseconds) {
  const timespec time{seconds, nanoseconds};
  nanosleep(&time, nullptr);
}

bool TcpConnection::receiveRequest(SnifferRequest& request) {
  const std::lock_guard guard(lock);
  if (!connected || clientSd == -1) return false;
  // What an earlier connection left half received must not become the beginning of this one's first command.
  if (ring.stream != stream) ring.restart(stream);

  // Never more than fits: what finds no room waits in the socket.
  const int room = ring.room();
  const int n = room > 0 ? static_cast<int>(recv(clientSd, ring.workBuffer, room, 0)) : -1;
  if (n == 0 && ring.total < SnifferRequest::kWireLength) {
    observer->linkLost();
    closeConnection();
    return false;
  }
  if (n < 1 && ring.total < 1) return false;
  if (n > 0) {
    ring.append(n);
    if (ring.total < SnifferRequest::kWireLength) return false;
  }
  if (ring.total >= SnifferRequest::kWireLength) {
    u_char wire[SnifferRequest::kWireLength];
    ring.take(wire);
    decode(wire, request, logger);
  }
  return true;
}

void TcpConnection::closeConnection() {
  const std::lock_guard guard(lock);
  if (connected) close(clientSd);
  connected = false;
  // An attempt in progress is dropped as it is, without a close.
  clientSd = -1;
  logger->info("Connection to Recorder closed.");
}
