#pragma once

#include <atomic>
#include <bitset>
#include <chrono>
#include <deque>

#include "base/Mutex.h"
#include "recorder/BaseConnection.h"
#include "recorder/FrameQueue.h"

namespace voip {

/// The lock of the process that hosts the sniffer: in Java, the monitor of the channel object. Re-entrant. enter() and
/// leave() are called on the dissector's threads.
class HostMonitor {
 public:
  virtual void enter() = 0;
  virtual void leave() = 0;

 protected:
  ~HostMonitor() = default;
};

}  // namespace voip

/// The link to a recorder in this process, the host. Frames wait in a queue until the host fetches them, commands in
/// another queue until the dissector takes them. No operation waits for anything but the locks.
///
/// The dissector's threads hold the host's monitor while they change a queue that the host sees, so a host that holds
/// the monitor sees no change. All threads also hold the connection's own lock during a queue operation: a host that
/// does not hold the monitor loses no frame.
class EmbeddedConnection : public BaseConnection {
 public:
  /// Returns the connection of this process, which is made on first use and never destroyed. Any thread.
  static EmbeddedConnection* dft();

  EmbeddedConnection() = default;
  EmbeddedConnection(const EmbeddedConnection&) = delete;
  EmbeddedConnection& operator=(const EmbeddedConnection&) = delete;
  ~EmbeddedConnection() override = default;

  /// Sets the monitor that the dissector's threads hold from now on; null for none. The caller owns the monitor. To be
  /// called while no dissector uses the connection.
  void setHostMonitor(voip::HostMonitor* monitor) { monitor_ = monitor; }

  /// Sets whether a fetch delivers the capture time before a frame that is late by then. Frames that wait already are
  /// not announced. To be called while no dissector uses the connection.
  void setCaptureTime(bool announce);
  bool announcesCaptureTime() const override { return announcesCaptureTime_; }

  /// Sets whether the host's commands may have IPv6 addresses. Any thread.
  void setIpv6(bool on) { ipv6_ = on; }
  bool takesIpv6() const { return ipv6_; }

  /// True when a command waits. Takes no lock. Any thread.
  bool mayHaveRequest() const override { return requestsWaiting_.load(std::memory_order_acquire) != 0; }

  /// Takes the oldest command. Returns false when none waits. Dissector's thread.
  bool receiveRequest(SnifferRequest& request) override;

  /// Queues a copy of the frame. Returns `length`. Dissector's thread. Throws std::bad_alloc.
  int sendPacket(u_char* buffer, int length) override;

  /// Queues copies of all frames; they become visible to the host together. Dissector's thread. Throws std::bad_alloc.
  voip::SendResult sendPackets(std::span<voip::OutgoingFrame> frames) override;

  /// Empties both queues. The connection stays usable. Dissector's thread.
  void closeConnection() override;

  /// Copies the oldest frame to `buffer` and removes it from the queue. Returns its length in bytes, or 0 when no frame
  /// waits. `buffer` must hold the longest frame, 65,535 bytes. The capture time of a late frame is returned by a
  /// separate call before it. Host's thread.
  int receivePacket(char* buffer);

  /// As above for a buffer of `capacity` bytes: when the oldest frame does not fit, it stays in the queue and 0 is
  /// returned. Logs this once for each length.
  int receivePacket(char* buffer, int capacity);

  /// Moves the oldest frames to `buffer`, each whole and without a gap between them, as many as its `capacity` bytes
  /// hold. Returns the number of bytes, or 0 when no frame waits. When not even the oldest frame fits, all frames stay
  /// and its length is returned as a negative number. A late frame follows its capture time in the same buffer, unless
  /// `buffer` cannot hold both. Host's thread.
  int receivePackets(char* buffer, int capacity);

  voip::HostBacklog getBacklog() override;
  const std::atomic<std::size_t>* getBacklogSize() const override { return &backlogSize_; }
  void watchHost() override;

  /// Sets how long frames may wait without a fetch before watchHost() logs a warning. For tests.
  void setHostPatience(std::chrono::milliseconds patience) { hostPatience_ = patience; }

  /// Queues a copy of a command. Returns true. Host's thread. Throws std::bad_alloc.
  bool sendRequest(SnifferRequest& request);

 private:
  bool noteFetch() REQUIRES(queueLock_);

  std::chrono::milliseconds hostPatience_{10'000};
  voip::HostMonitor* monitor_ = nullptr;
  bool announcesCaptureTime_ = false;
  std::atomic<bool> ipv6_ = false;
  std::atomic<std::size_t> requestsWaiting_ = 0;
  std::atomic<std::size_t> backlogSize_ = 0;  ///< bytes of the frames in the queue

  voip::Mutex queueLock_;  ///< the innermost lock: no other lock is taken while it is held
  std::deque<SnifferRequest> requestQueue_ GUARDED_BY(queueLock_);
  voip::FrameQueue packetQueue_ GUARDED_BY(queueLock_);
  std::size_t highestBacklog_ GUARDED_BY(queueLock_) = 0;
  /// Time of the last fetch, or of the first frame in an empty queue.
  std::chrono::steady_clock::time_point idleSince_ GUARDED_BY(queueLock_);
  bool hostIsIdle_ GUARDED_BY(queueLock_) = false;           ///< the warning has been logged
  std::bitset<65536> loggedLengths_ GUARDED_BY(queueLock_);  ///< of frames that did not fit the host's buffer

  static EmbeddedConnection* theConnection_;
};
