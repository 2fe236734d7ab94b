#include "EmbeddedConnection.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

/// Holds the host's monitor, when there is one, for the length of a scope.
class MonitorGuard {
 public:
  explicit MonitorGuard(HostMonitor* hostMonitor) : monitor(hostMonitor) {
    if (monitor != nullptr) monitor->enter();
  }
  ~MonitorGuard() {
    if (monitor != nullptr) monitor->leave();
  }
  MonitorGuard(const MonitorGuard&) = delete;
  MonitorGuard& operator=(const MonitorGuard&) = delete;

 private:
  HostMonitor* monitor;
};

}  // namespace

EmbeddedConnection* EmbeddedConnection::theConnection = nullptr;
log4cxx::LoggerPtr EmbeddedConnection::logger = log4cxx::Logger::getLogger("EmbeddedConnection");

EmbeddedConnection* EmbeddedConnection::dft() {
  static std::once_flag once;
  std::call_once(once, [] { theConnection = new EmbeddedConnection; });
  return theConnection;
}

int EmbeddedConnection::sendPacket(u_char* buffer, int length) {
  OutgoingFrame frame{buffer, length};
  sendPackets({&frame, 1});
  return frame.sent;
}

std::size_t EmbeddedConnection::sendPackets(std::span<OutgoingFrame> frames) {
  {
    // The copies are made without the monitor: the host need not wait for them.
    const std::lock_guard guard(queueLock);
    for (OutgoingFrame& frame : frames) {
      packetQueue.append(frame.bytes, frame.length);
      frame.sent = frame.length;
    }
  }
  const MonitorGuard host(monitor);
  const std::lock_guard guard(queueLock);
  if (packetQueue.size() == 0) idleSince = Clock::now();
  packetQueue.publish();
  highestBacklog = std::max(highestBacklog, packetQueue.size());
  return frames.size();
}

int EmbeddedConnection::receivePacket(char* buffer) {
  return receivePacket(buffer, std::numeric_limits<int>::max());
}

int EmbeddedConnection::receivePacket(char* buffer, int capacity) {
  SnifferPacket packet{};
  bool unheardOf = false;
  bool back = false;
  std::size_t left = 0;
  {
    const std::lock_guard guard(queueLock);
    if (packetQueue.size() == 0) return 0;
    packet = packetQueue.front();
    if (packet.length > capacity) {
      auto told = tooLong[std::min<std::size_t>(static_cast<std::size_t>(packet.length), tooLong.size() - 1)];
      unheardOf = !told;
      told = true;
    } else {
      if (packet.length > 0) std::memcpy(buffer, packet.payload, static_cast<std::size_t>(packet.length));
      packetQueue.pop();
      left = packetQueue.size();
      idleSince = Clock::now();
      back = std::exchange(hostIsIdle, false);
    }
  }
  if (back) logger->warn("The host fetches frames again, " + std::to_string(left) + " wait");
  if (unheardOf) {
    logger->warn("A frame of " + std::to_string(packet.length) + " bytes waits, the host's array holds " +
                 std::to_string(capacity) + ": nothing is fetched until it is larger");
  }
  return packet.length > capacity ? 0 : packet.length;
}

void EmbeddedConnection::watchHost() {
  std::size_t waiting;
  {
    const std::lock_guard guard(queueLock);
    waiting = packetQueue.size();
    if (waiting == 0 || hostIsIdle || Clock::now() - idleSince < hostPatience) return;
    hostIsIdle = true;
  }
  logger->warn("The host has fetched nothing for " + std::to_string(hostPatience / std::chrono::seconds(1)) + " s, " +
               std::to_string(waiting) + " frames wait");
}

EmbeddedConnection::Backlog EmbeddedConnection::getBacklog() {
  const std::lock_guard guard(queueLock);
  return {packetQueue.size(), highestBacklog};
}

bool EmbeddedConnection::sendRequest(SnifferRequest& request) {
  const std::lock_guard guard(queueLock);
  requestQueue.push_back(request);
  requestsWaiting = requestQueue.size();
  return true;
}

bool EmbeddedConnection::receiveRequest(SnifferRequest& request) {
  const MonitorGuard host(monitor);
  const std::lock_guard guard(queueLock);
  if (requestQueue.empty()) return false;
  request = requestQueue.front();
  requestQueue.pop_front();
  requestsWaiting = requestQueue.size();
  return true;
}

void EmbeddedConnection::closeConnection() {
  const MonitorGuard host(monitor);
  const std::lock_guard guard(queueLock);
  requestQueue.clear();
  requestsWaiting = 0;
  packetQueue.clear();
  highestBacklog = 0;
  hostIsIdle = false;
}
