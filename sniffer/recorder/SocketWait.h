#pragma once

#include <atomic>
#include <chrono>

namespace voip {

/// Waits for sockets, with an end that any thread can set. One thread waits to read and one to write. When the process
/// has no descriptor left for this, the waits poll.
class SocketWait {
 public:
  SocketWait();
  SocketWait(const SocketWait&) = delete;
  SocketWait& operator=(const SocketWait&) = delete;
  ~SocketWait();

  /// Adds a socket to those that untilReadable() waits for, also during a wait. Closing the socket removes it. The
  /// caller owns the socket. Any thread.
  void watch(int sd);

  /// Waits until a watched socket has data to read, has failed or was closed by the peer, or until end(). May return
  /// early. The reading thread.
  void untilReadable();

  /// Waits until `sd` takes data again, has failed or was shut down; then returns true. Returns false after `longest`
  /// or end(). The writing thread.
  bool untilWritable(int sd, std::chrono::milliseconds longest);

  /// Waits for `longest` or until end(). The writing thread.
  void untilEnd(std::chrono::milliseconds longest);

  /// Ends all waits, present and future. Any thread.
  void end();

 private:
  const int endEvent_;  ///< eventfd(2): readable after end()
  const int readable_;  ///< epoll(7): sockets are added and closed ones disappear, also while a thread waits
  std::atomic<bool> ended_ = false;
};

}  // namespace voip
