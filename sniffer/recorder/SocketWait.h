#pragma once

#include <atomic>
#include <chrono>

namespace voip {

/// Where threads sleep until a socket is ready, or until the end. One thread waits to read and one to write.
class SocketWait {
 public:
  SocketWait();
  SocketWait(const SocketWait&) = delete;
  SocketWait& operator=(const SocketWait&) = delete;
  ~SocketWait();

  /// The socket that untilReadable() waits for from now on, also when it already waits. A socket that is closed is
  /// watched no more. Any thread.
  void watch(int sd);

  /// Sleeps until a watched socket has something to read, has failed or was ended by the other side.
  void untilReadable();

  /// Sleeps until `sd` takes something again, has failed or was shut down: true. False when that takes too long.
  bool untilWritable(int sd, std::chrono::milliseconds longest);

  /// Sleeps for a time, or until the end.
  void untilEnd(std::chrono::milliseconds longest);

  /// From now on nothing waits here. Any thread.
  void end();
  bool hasEnded() const { return ended; }

 private:
  int endEvent;  ///< readable from the end on
  int readable;  ///< epoll(7), which takes new sockets in and lets closed ones go while a thread waits
  std::atomic<bool> ended = false;
};

}  // namespace voip
