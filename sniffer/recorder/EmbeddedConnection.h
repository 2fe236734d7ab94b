#pragma once

#include <atomic>
#include <bitset>
#include <chrono>
#include <deque>

#include "base/Mutex.h"
#include "recorder/BaseConnection.h"
#include "recorder/FrameQueue.h"

namespace voip {

/// The lock of the process that hosts the sniffer: in Java, the monitor of the channel object. Re-entrant.
class HostMonitor {
 public:
  virtual void enter() = 0;
  virtual void leave() = 0;

 protected:
  ~HostMonitor() = default;
};

}  // namespace voip

/// The recorder in this process: frames wait in one queue until the host fetches them, commands in another until the
/// dissector takes them. No operation waits for anything but the locks.
///
/// The dissector's side holds the host's monitor while it changes a queue, so a host that holds the monitor sees the
/// queues stand still. Both sides also hold the connection's own lock for the length of a queue operation: a host that
/// does not take the monitor loses no frame.
class EmbeddedConnection : public BaseConnection {
 public:
  /// The connection of this process, made on first use and never destroyed.
  static EmbeddedConnection* dft();

  EmbeddedConnection() = default;
  EmbeddedConnection(const EmbeddedConnection&) = delete;
  EmbeddedConnection& operator=(const EmbeddedConnection&) = delete;
  ~EmbeddedConnection() override = default;

  /// The monitor to hold from now on, or null for none. Entered on the dissector's threads only.
  void setHostMonitor(voip::HostMonitor* monitor) { monitor_ = monitor; }

  /// True when a command waits. Takes no lock.
  bool mayHaveRequest() const override { return requestsWaiting_.load(std::memory_order_acquire) != 0; }

  /// Dissector's side: takes the oldest command.
  bool receiveRequest(SnifferRequest& request) override;

  /// Dissector's side: queues a copy of the frame. Returns `length`.
  int sendPacket(u_char* buffer, int length) override;

  /// Dissector's side: queues copies of all frames, which the host sees at once.
  voip::SendResult sendPackets(std::span<voip::OutgoingFrame> frames) override;

  /// Dissector's side: empties both queues. The connection stays usable.
  void closeConnection() override;

  /// Host's side: copies the oldest frame to `buffer`, removes it and returns its length, or 0 when none waits. The
  /// buffer must hold the largest frame, 65,535 bytes.
  int receivePacket(char* buffer);

  /// The same for a buffer of `capacity` bytes: a frame that does not fit stays, and 0 is returned. Logged once for
  /// each length.
  int receivePacket(char* buffer, int capacity);

  voip::HostBacklog getBacklog() override;
  const std::atomic<std::size_t>* getBacklogSize() const override { return &backlogSize_; }
  void watchHost() override;

  /// How long frames may wait without a fetch before the log warns. For tests.
  void setHostPatience(std::chrono::milliseconds patience) { hostPatience_ = patience; }

  /// Host's side: queues a command. Returns true.
  bool sendRequest(SnifferRequest& request);

 private:
  std::chrono::milliseconds hostPatience_{10'000};
  voip::HostMonitor* monitor_ = nullptr;
  std::atomic<std::size_t> requestsWaiting_ = 0;
  std::atomic<std::size_t> backlogSize_ = 0;  ///< bytes of the frames in the queue

  voip::Mutex queueLock_;  // the innermost lock: nothing is called while it is held
  std::deque<SnifferRequest> requestQueue_ GUARDED_BY(queueLock_);
  voip::FrameQueue packetQueue_ GUARDED_BY(queueLock_);
  std::size_t highestBacklog_ GUARDED_BY(queueLock_) = 0;
  /// The last fetch, or when the first waiting frame came.
  std::chrono::steady_clock::time_point idleSince_ GUARDED_BY(queueLock_);
  bool hostIsIdle_ GUARDED_BY(queueLock_) = false;           ///< and the log says so
  std::bitset<65536> loggedLengths_ GUARDED_BY(queueLock_);  ///< of frames that did not fit the host's buffer

  static EmbeddedConnection* theConnection_;
};
