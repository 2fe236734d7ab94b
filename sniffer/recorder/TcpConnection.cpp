#include "TcpConnection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>

#include "DottedDecimal.h"

namespace {

constexpr int kSendBufferSize = 60000;
constexpr std::size_t kMostTogether = 65536;  // bytes of one system call, unless it is one frame
constexpr std::size_t kMostReplies = 65536;   // bytes of heartbeats that wait for room
constexpr std::chrono::seconds kWorthTelling{1};

/// For a connection that nobody owns yet.
class Nobody final : public LinkObserver {
  void linkEstablished() override {}
  void linkLost() override {}
  void forgetDestinations() override {}
  void discardWaiting() override {}
  void waitedForRoom(std::chrono::milliseconds, std::size_t) override {}
  void foreignCommand() override {}
} nobody;

bool isSendable(const OutgoingFrame& frame) {
  return frame.bytes != nullptr && frame.length >= 1;
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
  const Lock held(lock);
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
  // What an earlier connection left half received must not become the beginning of this one's first command.
  commands.restart();
  replies.clear();
  connected = true;
  wait.watch(clientSd);
  observer->linkEstablished();
}

bool TcpConnection::reconnect() {
  tcpConnect();
  if (!connected) return false;
  logger->info("Connected to recorder " + std::string(serverHost) + ":" + std::to_string(serverPort));
  return true;
}

// ---- sending ----

int TcpConnection::sendPacket(u_char* buffer, int length) {
  OutgoingFrame frame{buffer, length};
  while (sendPackets({&frame, 1}) == 0) {
  }
  return frame.sent;
}

std::size_t TcpConnection::sendPackets(std::span<OutgoingFrame> frames) {
  Lock held(lock);
  noneWaits.wait(held, [this] { return !waitingForRoom; });
  for (std::size_t done = 0; done < frames.size();) {
    OutgoingFrame& frame = frames[done];
    frame.sent = 0;
    if (!isSendable(frame)) {
      ++done;
      if (frame.length != 0) return done;
    } else if (!connected && !reconnect()) {
      frame.sent = reject(held);
      return done + 1;
    } else if (!sendGroup(frames.subspan(done), done, held)) {
      return done;
    }
  }
  sendReplies(held);
  return frames.size();
}

int TcpConnection::reject(Lock& held) {
  if (connectRetries++ == 0) logConnecting();
  // Under the lock: what a recorder asks for as soon as it is back must not be forgotten.
  observer->forgetDestinations();
  observer->discardWaiting();
  held.unlock();
  rest(1, 0);
  return -1;
}

bool TcpConnection::sendGroup(std::span<OutgoingFrame> frames, std::size_t& done, Lock& held) {
  connectRetries = 0;
  if (!sendReplies(held)) {
    ++done;
    return false;
  }
  const std::size_t size = gather(frames);
  const OutgoingFrame& one = frames[0];
  // MSG_NOSIGNAL: a recorder that went away is an error to handle, never the end of the process.
  const ssize_t n = size > 1 ? send(clientSd, together.data(), together.size(), MSG_NOSIGNAL)
                             : send(clientSd, one.bytes, static_cast<std::size_t>(one.length), MSG_NOSIGNAL);

  std::size_t whole = 0;
  ssize_t left = n;
  for (; whole < size && left >= frames[whole].length; ++whole) left -= frames[whole].sent = frames[whole].length;
  done += whole;
  // Where it ends between two frames, the one behind has not been tried yet.
  if (whole == size || (whole > 0 && left == 0)) return true;
  // A frame that has not begun and had to wait is the caller's again: it may be late now.
  OutgoingFrame& frame = frames[whole];
  bool patient = sendTimeout.count() > 0;
  if (n == -1 && errno == EAGAIN && patient) {
    const Room room = waitForRoom(size, held);
    if (room == Room::kThere) return false;
    // Little room does not count as room: now that the time is over, it is tried all the same.
    patient = false;
    left = room == Room::kNeverMore ? 0
                                    : send(clientSd, frame.bytes, static_cast<std::size_t>(frame.length), MSG_NOSIGNAL);
  }
  frame.sent = connected
                   ? sendRest({frame.bytes, static_cast<std::size_t>(frame.length)}, left, size - whole, patient, held)
                   : 0;
  ++done;
  return frame.sent == frame.length;
}

std::size_t TcpConnection::gather(std::span<const OutgoingFrame> frames) {
  // A copy here costs less than half of what the kernel takes to collect pieces.
  together.clear();
  std::size_t size = 0;
  for (const OutgoingFrame& frame : frames) {
    if (!isSendable(frame) || together.size() + static_cast<std::size_t>(frame.length) > kMostTogether) break;
    if (frames.size() > 1) together.insert(together.end(), frame.bytes, frame.bytes + frame.length);
    ++size;
  }
  return std::max<std::size_t>(size, 1);
}

int TcpConnection::sendRest(std::span<const u_char> bytes, ssize_t n, std::size_t frames, bool patient, Lock& held) {
  const bool once = sendTimeout.count() > 0;
  const auto length = static_cast<ssize_t>(bytes.size());
  ssize_t sent = 0;
  while (true) {
    if (n == -1 && errno == EAGAIN && patient) {
      const Room room = waitForRoom(frames, held);
      if (room == Room::kNeverMore) break;
      // Little room does not count as room: when the time is over, it is tried all the same.
      patient = room == Room::kThere;
    } else if (n == -1) {
      if (checkError(errno) != 0) break;
    } else if (n == length || once) {
      sent += n;
      patient = once;
    } else if (length - sent > n) {
      logger->warn("Sent nSent=" + std::to_string(n) + " bytes of " + std::to_string(length));
      sent += n;
    }
    // Without a time-out a short send that completes the frame is not counted, and the rest goes out again: recorders
    // in the field know this stream, so it stays.
    if (sent == length) break;
    n = send(clientSd, bytes.data() + sent, bytes.size() - static_cast<std::size_t>(sent), MSG_NOSIGNAL);
  }
  return static_cast<int>(sent);
}

TcpConnection::Room TcpConnection::waitForRoom(std::size_t frames, Lock& held) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  const int sd = clientSd;
  waitingForRoom = true;
  held.unlock();
  const bool room = wait.untilWritable(sd, sendTimeout);
  held.lock();
  waitingForRoom = false;
  noneWaits.notify_all();
  const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
  observer->waitedForRoom(time, frames);
  if (time >= kWorthTelling) logger->warn("The recorder made no room for " + std::to_string(time.count()) + " ms");
  if (connected) return room ? Room::kThere : Room::kNotInTime;
  close(sd);  // closeConnection() left it
  return Room::kNeverMore;
}

int TcpConnection::sendReply(u_char* buffer, int length) {
  if (sendTimeout.count() == 0) return sendPacket(buffer, length);
  if (!isSendable({buffer, length})) return 0;
  Lock held(lock);
  if (!waitingForRoom && !connected && !reconnect()) return reject(held);
  if (!connected || replies.size() + static_cast<std::size_t>(length) > kMostReplies) return -1;
  replies.insert(replies.end(), buffer, buffer + length);
  if (waitingForRoom) return length;
  const ssize_t n = send(clientSd, replies.data(), replies.size(), MSG_NOSIGNAL);
  if (n > 0) {
    replies.erase(replies.begin(), replies.begin() + n);
  } else if (errno != EAGAIN) {
    checkError(errno);
  }
  return length;
}

bool TcpConnection::sendReplies(Lock& held) {
  while (connected && !replies.empty()) {
    const std::vector<u_char> now = std::exchange(replies, {});
    const ssize_t n = send(clientSd, now.data(), now.size(), MSG_NOSIGNAL);
    if (sendRest(now, n, 1, sendTimeout.count() > 0, held) < static_cast<int>(now.size())) return false;
  }
  return true;
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

// ---- commands ----

bool TcpConnection::receiveRequest(SnifferRequest& request) {
  const Lock held(lock);
  if (!connected || clientSd == -1) return false;
  // Never more than fits: what finds no room waits in the socket.
  std::array<u_char, CommandStream::kMostAtOnce> received;
  const std::size_t room = commands.room();
  const ssize_t n = room > 0 ? recv(clientSd, received.data(), room, 0) : -1;
  if (n == 0 && commands.waiting() < SnifferRequest::kWireLength) {
    observer->linkLost();
    closeConnection();
    return false;
  }
  if (n < 1 && commands.waiting() < 1) return false;
  if (n > 0) {
    commands.append({received.data(), static_cast<std::size_t>(n)});
    if (commands.waiting() < SnifferRequest::kWireLength) return false;
  }
  if (commands.take(request)) logCommand(request);
  return true;
}

void TcpConnection::logCommand(const SnifferRequest& request) {
  if (!logger->isDebugEnabled()) return;
  logger->debug(request.request == SnifferRequest::kHeartbeat
                    ? "Heartbeat request received"
                    : "rx from server cmd=" + std::to_string(request.request) +
                          ", ip=" + dottedDecimal(request.rtpAddr) + ", port=" + std::to_string(request.rtpPort));
}

void TcpConnection::closeConnection() {
  const Lock held(lock);
  // A thread that waits for room is woken, and closes what it waits for.
  if (connected && waitingForRoom) shutdown(clientSd, SHUT_RDWR);
  if (connected && !waitingForRoom) close(clientSd);
  connected = false;
  // An attempt in progress is dropped as it is, without a close.
  clientSd = -1;
  logger->info("Connection to Recorder closed.");
}
