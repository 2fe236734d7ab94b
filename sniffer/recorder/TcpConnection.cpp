#include "recorder/TcpConnection.h"

#include <fcntl.h>
#include <linux/sock_diag.h>
#include <linux/sockios.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <string>
#include <utility>

#include "base/HostText.h"
#include "base/Logger.h"

using namespace voip;

namespace {

constexpr int kSendBufferSize = 60000;
constexpr std::chrono::seconds kLoggedWait{1};
constexpr std::chrono::milliseconds kStallPause{1};
constexpr std::chrono::milliseconds kBetweenAttempts{250};
constexpr int kRepeatedSyns = 1;  // an attempt without an answer ends after 3 s

bool isSendable(const OutgoingFrame& frame) {
  return frame.bytes != nullptr && frame.length >= 1;
}

}  // namespace

TcpConnection::TcpConnection(const char* host, int port)
    : serverAddr_(host, port),
      serverPort_(port),
      serverHost_(host),
      sending_(std::make_unique<AccountedSending>(static_cast<StreamSocket&>(*this))) {
  logger().info("Connecting to recorder " + getAddress());
}

TcpConnection::~TcpConnection() {
  TcpConnection::closeConnection();
}

void TcpConnection::setSendTimeout(std::chrono::milliseconds time) {
  sendTimeout_ = time;
  if (time.count() == 0) return;
  auto exact = std::make_unique<ExactSending>(static_cast<StreamSocket&>(*this));
  exact_ = exact.get();
  sending_ = std::move(exact);
}

std::string TcpConnection::getAddress() const {
  return hostAndPort(serverHost_, serverPort_);
}

// ---- connecting ----

int TcpConnection::getSocket() {
  const int sd = socket(serverAddr_.family(), SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
  if (sd == -1) {
    logger().error("Unable to create TCP connection.");
    return -1;
  }
  fcntl(sd, F_SETFL, fcntl(sd, F_GETFL) | O_NONBLOCK);
  const int on = 1;
  setsockopt(sd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  int size = 0;
  socklen_t length = sizeof size;
  if (getsockopt(sd, SOL_SOCKET, SO_SNDBUF, &size, &length) != 0) logger().warn("Error getsockopt");
  size = kSendBufferSize;
  // Both failures have the same log text, because log filters of operators depend on it.
  if (setsockopt(sd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size) != 0) logger().warn("Error getsockopt");
  logger().info("Tcp socket send buffer size=" + std::to_string(kSendBufferSize));
  // Frames are sent in groups. A group need not wait until the recorder has acknowledged the one before. But smaller
  // segments fill the send buffer sooner, and without a send timeout a full one loses the connection.
  if (sendTimeout_.count() > 0) setsockopt(sd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return sd;
}

void TcpConnection::tcpConnect() {
  const MutexLock held(lock_);
  if (clientSd_ == -1) clientSd_ = getSocket();
  if (clientSd_ == -1) return;
  if (!isConnecting_) attemptedAt_ = Clock::now();
  isConnecting_ = false;
  serverAddr_ = SocketAddress(serverHost_, serverPort_);  // the device of a link-local address may have appeared
  if (connect(clientSd_, serverAddr_.data(), serverAddr_.size()) == 0) {
    setConnected();
    return;
  }
  // The socket stays open: a later attempt on it shows the result of this one.
  const int error = errno;
  isConnecting_ = error == EALREADY || error == EINPROGRESS;
  if (error == EALREADY) return;
  if (error == EINPROGRESS) {
    logger().debug("Connecting ...");
  } else {
    logger().debug("TCP connect failed with errno=", error);
  }
}

void TcpConnection::setConnected() {
  // Half a command of an earlier connection must not become the beginning of the first command of this one.
  commands_.restart();
  if (isExact()) exact_->dropReplies();
  isStalled_ = false;
  isLossKnown_ = false;
  connected_ = true;
  wait_.watch(clientSd_);
  if (statistics_ == nullptr) return;
  statistics_->recorderConnects.add();
  statistics_->recorderConnected = 1;
}

bool TcpConnection::reconnect() {
  tcpConnect();
  if (!connected_) return false;
  logger().info("Connected to recorder " + getAddress());
  return true;
}

void TcpConnection::stopConnecting() {
  const MutexLock held(lock_);
  mayConnect_ = false;
}

LinkEvent TcpConnection::keepConnected() {
  if (connected_) return LinkEvent::kNone;
  const MutexLock held(lock_);
  if (!std::exchange(isLossKnown_, true)) return LinkEvent::kLost;
  if (!isConnecting_ && Clock::now() - attemptedAt_ < kBetweenAttempts) return LinkEvent::kNone;
  if (reconnect()) {
    connectRetries_ = 0;
  } else {
    setsockopt(clientSd_, IPPROTO_TCP, TCP_SYNCNT, &kRepeatedSyns, sizeof kRepeatedSyns);  // for the next attempt
    logAttempt();
  }
  return LinkEvent::kNone;
}

void TcpConnection::logAttempt() {
  if (connectRetries_++ == 0) logger().info("Connecting to recorder " + getAddress());
}

void TcpConnection::countLoss() {
  if (statistics_ == nullptr) return;
  statistics_->recorderLosses.add();
  statistics_->recorderConnected = 0;
}

// ---- sending ----

int TcpConnection::sendPacket(u_char* buffer, int length) {
  OutgoingFrame frame{buffer, length};
  SendResult result;
  do {
    result = sendPackets({&frame, 1});
  } while (result.dealtWith == 0);
  if (result.link == LinkEvent::kUnreachable) rest(1, 0);
  return frame.sent;
}

SendResult TcpConnection::sendPackets(std::span<OutgoingFrame> frames) {
  const MutexLock held(lock_);
  while (waitingForRoom_) noneWaits_.wait(lock_);
  event_ = LinkEvent::kNone;
  SendProgress progress;
  for (std::size_t done = 0; done < frames.size();) {
    progress = sendFrames(frames.subspan(done));
    done += progress.dealtWith;
    if (!progress.mayContinue) return {done, event_};
  }
  if (isExact() && connected_) exact_->sendReplies();
  return {frames.size(), event_};
}

/// Sends frames from the first on. Connects first if there is no connection, unless stopConnecting() was called.
SendProgress TcpConnection::sendFrames(std::span<OutgoingFrame> frames) {
  OutgoingFrame& first = frames[0];
  first.sent = 0;
  if (!isSendable(first)) return {1, first.length == 0};
  if (reportsEachLoss_ && !connected_ && !std::exchange(isLossKnown_, true)) {
    first.sent = -1;
    event_ = LinkEvent::kLost;
    return {1, false};
  }
  if (connected_ || (mayConnect_ && reconnect())) {
    connectRetries_ = 0;
    return sending_->send(frames);
  }
  if (mayConnect_) logAttempt();
  isLossKnown_ = true;
  first.sent = -1;
  event_ = LinkEvent::kUnreachable;
  return {1, false};
}

LinkEvent TcpConnection::sendReply(OutgoingFrame& reply) {
  const MutexLock held(lock_);
  const LinkEvent event = sendReplyNow(reply);
  // The sending thread has not heard of this loss.
  if (reportsEachLoss_ && event == LinkEvent::kLost) isLossKnown_ = false;
  return event;
}

LinkEvent TcpConnection::sendReplyNow(OutgoingFrame& reply) {
  if (isExact()) return sendReplyExactly(reply);
  if (connected_) return sendPackets({&reply, 1}).link;
  reply.sent = -1;
  return LinkEvent::kNone;
}

LinkEvent TcpConnection::sendReplyExactly(OutgoingFrame& reply) {
  event_ = LinkEvent::kNone;
  const bool isTaken =
      connected_ && isSendable(reply) && exact_->addReply({reply.bytes, static_cast<std::size_t>(reply.length)});
  reply.sent = isTaken ? reply.length : -1;
  if (isTaken && !waitingForRoom_) exact_->sendRepliesNow();
  return event_;
}

ssize_t TcpConnection::sendBytes(std::span<const std::uint8_t> bytes) {
  // MSG_NOSIGNAL: a closed connection is an error to handle and must not end the process.
  const ssize_t sent = send(clientSd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (sent > 0) {
    isStalled_ = false;
    sentSinceRoom_ += static_cast<std::size_t>(sent);
  }
  return sent;
}

std::size_t TcpConnection::getRoom() {
  const MutexLock held(lock_);
  if (!connected_) return 1;  // one frame, whose send connects
  const std::size_t fairShare = std::exchange(sentSinceRoom_, 0) / 2;
  const std::size_t room = spaceForKept();
  // Where a full buffer does not lose the connection, other frames do not keep the kept ones from being sent.
  return isExact() ? std::max(room, fairShare) : room;
}

/// Returns how many bytes can be sent so that a third of the send buffer stays free for other frames, and no more than
/// a third of it waits for the recorder's window. Bytes on their way to the recorder delay no other frame.
std::size_t TcpConnection::spaceForKept() {
  constexpr int kShare = kSendBufferSize / 3;
  int unsent = 0;
  int unacknowledged = 0;
  if (ioctl(clientSd_, SIOCOUTQNSD, &unsent) != 0 || ioctl(clientSd_, SIOCOUTQ, &unacknowledged) != 0) return 1;
  int free = kSendBufferSize - unacknowledged;
  // The kernel counts its own overhead, too, and doubles the size of the buffer for it.
  std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
  socklen_t length = sizeof memory;
  if (getsockopt(clientSd_, SOL_SOCKET, SO_MEMINFO, memory.data(), &length) == 0) {
    free = (static_cast<int>(memory[SK_MEMINFO_SNDBUF]) - static_cast<int>(memory[SK_MEMINFO_WMEM_QUEUED])) / 2;
  }
  return static_cast<std::size_t>(std::max(0, std::min(kShare - unsent, free - kShare)));
}

void TcpConnection::pause() {
  wait_.untilEnd(std::chrono::seconds(1));
}

/// The caller holds the recursive lock once; the wait releases it.
StreamSocket::Room TcpConnection::waitForRoom(std::size_t frames) {
  const Clock::time_point start = Clock::now();
  const int sd = clientSd_;
  const bool wasStalled = isStalled_;
  if (!wasStalled) stalledSince_ = start;
  waitingForRoom_ = true;
  lock_.unlock();
  // When the system is short of memory, poll() may report space where send() finds none: pause instead of a busy loop.
  if (wasStalled) wait_.untilEnd(kStallPause);
  const bool isInTime = Clock::now() - stalledSince_ < sendTimeout_;
  const bool isRoom = isInTime && wait_.untilWritable(sd, sendTimeout_);
  lock_.lock();
  isStalled_ = isRoom;
  waitingForRoom_ = false;
  noneWaits_.notifyAll();
  const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
  if (statistics_ != nullptr) statistics_->countWait(time, frames);
  if (time >= kLoggedWait) logger().warn("The recorder made no room for " + std::to_string(time.count()) + " ms");
  if (connected_) return isRoom ? Room::kThere : Room::kNotInTime;
  close(sd);  // closeConnection() left it open
  return Room::kClosed;
}

int TcpConnection::checkError(int errnum) {
  logger().warn("Send error=" + std::to_string(errnum));
  switch (errnum) {
    case EINTR:
      logger().warn("Interrupted while sending - will continue sending.");
      return 0;
    case EMSGSIZE:
    case ENOBUFS:
      logger().warn("Packet too large to send.");
      return -1;
    case EPIPE:
      logger().warn("Connection to recorder lost.");
      break;
    case EAGAIN:
      logger().warn("Can not send. Connection to recorder lost.");
      break;
    default:
      logger().warn("Connection to recorder not working");
  }
  countLoss();
  isLossKnown_ = true;
  event_ = LinkEvent::kLost;
  closeConnection();
  return -1;
}

void TcpConnection::rest(long seconds, long nanoseconds) {
  const timespec time{seconds, nanoseconds};
  nanosleep(&time, nullptr);
}

// ---- commands ----

void TcpConnection::setIpv6(bool on) {
  const MutexLock held(lock_);
  commands_.setIpv6(on);
}

bool TcpConnection::receiveRequest(SnifferRequest& request) {
  const MutexLock held(lock_);
  if (!connected_ || clientSd_ == -1) return false;
  // Reads at most the bytes that fit; the other bytes stay in the socket.
  std::array<std::uint8_t, CommandStream::kMaxAppended> received;
  const std::size_t room = commands_.room();
  const ssize_t n = room > 0 ? recv(clientSd_, received.data(), room, 0) : -1;
  if (n == 0 && !commands_.hasWhole()) {
    countLoss();
    closeConnection();
    return false;
  }
  if (n < 1 && commands_.waiting() < 1) return false;
  if (n > 0) {
    commands_.append({received.data(), static_cast<std::size_t>(n)});
    if (!commands_.hasWhole()) return false;
  }
  if (commands_.take(request)) logCommand(request);
  return true;
}

void TcpConnection::logCommand(const SnifferRequest& request) {
  if (!logger().isDebugEnabled()) return;
  logger().debug(request.request == SnifferRequest::kHeartbeat
                     ? "Heartbeat request received"
                     : "rx from server cmd=" + std::to_string(request.request) + ", ip=" + request.address().text() +
                           ", port=" + std::to_string(request.rtpPort));
}

void TcpConnection::closeConnection() {
  const MutexLock held(lock_);
  // A thread that waits for space wakes up and closes the socket itself.
  if (connected_ && waitingForRoom_) shutdown(clientSd_, SHUT_RDWR);
  if (connected_ && !waitingForRoom_) close(clientSd_);
  if (!connected_ && closesAttempts_ && clientSd_ != -1) close(clientSd_);
  connected_ = false;
  isConnecting_ = false;
  clientSd_ = -1;
  logger().info("Connection to Recorder closed.");
}
