#include "recorder/EmbeddedConnection.h"

#include "base/Logger.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

using namespace voip;

namespace {

/// The connection has a separate logger.
const Logger& ownLogger() {
  static const Logger& own = *new Logger("EmbeddedConnection");
  return own;
}

void logFetchedAgain(std::size_t left) {
  ownLogger().warn("The host fetches frames again, " + std::to_string(left) + " wait");
}

using Clock = std::chrono::steady_clock;

/// Holds the host's monitor, if there is one, for the duration of a scope.
class MonitorGuard {
 public:
  explicit MonitorGuard(HostMonitor* monitor) : monitor_(monitor) {
    if (monitor_ != nullptr) monitor_->enter();
  }
  ~MonitorGuard() {
    if (monitor_ != nullptr) monitor_->leave();
  }
  MonitorGuard(const MonitorGuard&) = delete;
  MonitorGuard& operator=(const MonitorGuard&) = delete;

 private:
  HostMonitor* monitor_;
};

}  // namespace

EmbeddedConnection* EmbeddedConnection::theConnection_ = nullptr;

EmbeddedConnection* EmbeddedConnection::dft() {
  static EmbeddedConnection* const made = theConnection_ = new EmbeddedConnection;
  return made;
}

void EmbeddedConnection::setCaptureTime(bool announce) {
  const MutexLock held(queueLock_);
  announcesCaptureTime_ = announce;
  packetQueue_.setKeepsStamps(announce);
}

int EmbeddedConnection::sendPacket(u_char* buffer, int length) {
  OutgoingFrame frame{buffer, length};
  sendPackets({&frame, 1});
  return frame.sent;
}

SendResult EmbeddedConnection::sendPackets(std::span<OutgoingFrame> frames) {
  {
    // The copies are made without the monitor, so that the host does not wait for them.
    const MutexLock held(queueLock_);
    for (OutgoingFrame& frame : frames) {
      packetQueue_.append(frame.bytes, frame.length, frame.stamp);
      frame.sent = frame.length;
    }
    backlogSize_ = packetQueue_.bytes();
  }
  const MonitorGuard host(monitor_);
  const MutexLock held(queueLock_);
  if (packetQueue_.size() == 0) idleSince_ = Clock::now();
  packetQueue_.publish();
  highestBacklog_ = std::max(highestBacklog_, packetQueue_.size());
  return {frames.size()};
}

int EmbeddedConnection::receivePacket(char* buffer) {
  return receivePacket(buffer, std::numeric_limits<int>::max());
}

int EmbeddedConnection::receivePacket(char* buffer, int capacity) {
  SnifferPacket packet{};
  bool isNewLength = false;
  bool isFetchedAgain = false;
  std::size_t left = 0;
  {
    const MutexLock held(queueLock_);
    if (packetQueue_.size() == 0) return 0;
    packetQueue_.beginFetch();
    packet = packetQueue_.front();
    if (packet.length > capacity) {
      auto isLogged =
          loggedLengths_[std::min<std::size_t>(static_cast<std::size_t>(packet.length), loggedLengths_.size() - 1)];
      isNewLength = !isLogged;
      isLogged = true;
    } else {
      if (packet.length > 0) std::memcpy(buffer, packet.payload, static_cast<std::size_t>(packet.length));
      packetQueue_.pop();
      left = packetQueue_.size();
      isFetchedAgain = noteFetch();
    }
  }
  if (isFetchedAgain) logFetchedAgain(left);
  if (isNewLength) {
    ownLogger().warn("A frame of " + std::to_string(packet.length) + " bytes waits, the host's array holds " +
                     std::to_string(capacity) + ": nothing is fetched until it is larger");
  }
  return packet.length > capacity ? 0 : packet.length;
}

int EmbeddedConnection::receivePackets(char* buffer, int capacity) {
  std::size_t taken = 0;
  std::size_t left = 0;
  bool isFetchedAgain = false;
  {
    const MutexLock held(queueLock_);
    if (packetQueue_.size() == 0) return 0;
    packetQueue_.beginFetch();
    taken = packetQueue_.take({reinterpret_cast<std::uint8_t*>(buffer), static_cast<std::size_t>(capacity)});
    left = packetQueue_.size();
    if (taken == 0 && left > 0) return -packetQueue_.shortestBuffer();
    isFetchedAgain = noteFetch();
  }
  if (isFetchedAgain) logFetchedAgain(left);
  return static_cast<int>(taken);
}

/// Notes that the host has fetched something. Returns true when this ends a time in which it fetched nothing.
bool EmbeddedConnection::noteFetch() {
  backlogSize_ = packetQueue_.bytes();
  idleSince_ = Clock::now();
  return std::exchange(hostIsIdle_, false);
}

void EmbeddedConnection::watchHost() {
  std::size_t waiting;
  {
    const MutexLock held(queueLock_);
    waiting = packetQueue_.size();
    if (waiting == 0 || hostIsIdle_ || Clock::now() - idleSince_ < hostPatience_) return;
    hostIsIdle_ = true;
  }
  ownLogger().warn("The host has fetched nothing for " + std::to_string(hostPatience_ / std::chrono::seconds(1)) +
                   " s, " + std::to_string(waiting) + " frames wait");
}

HostBacklog EmbeddedConnection::getBacklog() {
  const MutexLock held(queueLock_);
  return {packetQueue_.size(), highestBacklog_};
}

bool EmbeddedConnection::sendRequest(SnifferRequest& request) {
  const MutexLock held(queueLock_);
  requestQueue_.push_back(request);
  requestsWaiting_ = requestQueue_.size();
  return true;
}

bool EmbeddedConnection::receiveRequest(SnifferRequest& request) {
  const MonitorGuard host(monitor_);
  const MutexLock held(queueLock_);
  if (requestQueue_.empty()) return false;
  request = requestQueue_.front();
  requestQueue_.pop_front();
  requestsWaiting_ = requestQueue_.size();
  if (!ipv6_) request.hasIpv6 = false;  // the command has no effect
  return true;
}

void EmbeddedConnection::closeConnection() {
  const MonitorGuard host(monitor_);
  const MutexLock held(queueLock_);
  requestQueue_.clear();
  requestsWaiting_ = 0;
  packetQueue_.clear();
  backlogSize_ = 0;
  highestBacklog_ = 0;
  hostIsIdle_ = false;
}
