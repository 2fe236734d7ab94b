#pragma once

#include <log4cxx/logger.h>

#include <atomic>
#include <bitset>
#include <chrono>
#include <deque>
#include <mutex>

#include "BaseConnection.h"
#include "FrameQueue.h"

/// The lock of the process that hosts the sniffer: in Java, the monitor of the channel object. Re-entrant.
class HostMonitor {
 public:
  virtual void enter() = 0;
  virtual void leave() = 0;

 protected:
  ~HostMonitor() = default;
};

/// The recorder in this process: frames wait in one queue until the host fetches them, commands in another until the
/// dissector takes them. No operation waits for anything but the locks.
///
/// The dissector's side holds the host's monitor around its changes, so a host that holds it sees the queues stand
/// still. Both sides hold the connection's own lock as well, for the length of a queue operation: a host that forgets
/// the monitor loses the stillness, never a frame. A host that leaves frames waiting for long is told of in the log.
class EmbeddedConnection : public BaseConnection {
 public:
  /// The connection of this process, made on first use and never destroyed.
  static EmbeddedConnection* dft();

  EmbeddedConnection() = default;
  EmbeddedConnection(const EmbeddedConnection&) = delete;
  EmbeddedConnection& operator=(const EmbeddedConnection&) = delete;
  ~EmbeddedConnection() override = default;

  /// The monitor to hold from now on, or null for none. It is entered on the dissector's threads only.
  void setHostMonitor(HostMonitor* hostMonitor) { monitor = hostMonitor; }

  /// True when a command waits. Without the monitor: for looking often.
  bool hasRequest() const { return requestsWaiting.load(std::memory_order_acquire) != 0; }

  /// Dissector's side: takes the oldest command.
  bool receiveRequest(SnifferRequest& request) override;

  /// Dissector's side: queues a copy of the frame. Answers `length`.
  int sendPacket(u_char* buffer, int length) override;

  /// Dissector's side: queues copies of all frames, which the host sees at once.
  std::size_t sendPackets(std::span<OutgoingFrame> frames) override;

  /// Dissector's side: empties both queues. The connection stays usable.
  void closeConnection() override;

  /// Host's side: copies the oldest frame to `buffer`, removes it and answers its length, or 0 when none waits. The
  /// buffer must hold the largest frame, 65,535 bytes.
  int receivePacket(char* buffer);

  /// The same for a buffer of `capacity` bytes: a frame that does not fit stays, and the answer is 0. Logged once for
  /// each length.
  int receivePacket(char* buffer, int capacity);

  struct Backlog {
    std::size_t waiting = 0;  ///< frames that the host has not fetched yet
    std::size_t highest = 0;  ///< most that ever waited
  };
  /// Any thread.
  Backlog getBacklog();

  /// Tells in the log of a host that leaves frames waiting. To be called every now and then, on the dissector's side.
  void watchHost();

  /// How long frames may wait without one being fetched, before the log tells of it. For tests.
  void setHostPatience(std::chrono::milliseconds patience) { hostPatience = patience; }

  /// Host's side: queues a command. Always true.
  bool sendRequest(SnifferRequest& request);

 private:
  std::deque<SnifferRequest> requestQueue;
  std::atomic<std::size_t> requestsWaiting = 0;
  FrameQueue packetQueue;
  std::size_t highestBacklog = 0;
  std::chrono::milliseconds hostPatience{10'000};
  std::chrono::steady_clock::time_point idleSince;  ///< the last fetch, or when the first frame came to wait
  bool hostIsIdle = false;                          ///< the log has told so
  std::bitset<65536> tooLong;                       ///< lengths of frames that the log has told to be too long
  std::mutex queueLock;                             ///< of all above; innermost: nothing is called while it is held
  HostMonitor* monitor = nullptr;

  static EmbeddedConnection* theConnection;
  static log4cxx::LoggerPtr logger;
};
