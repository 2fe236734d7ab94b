#include "EmbeddedConnection.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

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

EmbeddedConnection::~EmbeddedConnection() {
  for (const SnifferPacket& packet : packetQueue) delete[] packet.payload;
}

int EmbeddedConnection::sendPacket(u_char* buffer, int length) {
  auto* copy = new u_char[length];
  std::memcpy(copy, buffer, length);
  const MonitorGuard host(monitor);
  const std::lock_guard guard(queueLock);
  packetQueue.push_back({length, copy});
  highestBacklog = std::max(highestBacklog, packetQueue.size());
  return length;
}

int EmbeddedConnection::receivePacket(char* buffer) {
  return receivePacket(buffer, std::numeric_limits<int>::max());
}

int EmbeddedConnection::receivePacket(char* buffer, int capacity) {
  SnifferPacket packet;
  {
    const std::lock_guard guard(queueLock);
    if (packetQueue.empty() || packetQueue.front().length > capacity) return 0;
    packet = packetQueue.front();
    packetQueue.pop_front();
  }
  if (packet.length > 0) std::memcpy(buffer, packet.payload, packet.length);
  delete[] packet.payload;
  return packet.length;
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
  for (const SnifferPacket& packet : packetQueue) delete[] packet.payload;
  packetQueue.clear();
}
