#pragma once

#include <chrono>
#include <cstddef>

/// Whoever owns a connection, told by it what becomes of the way to the recorder. So a connection knows nothing of the
/// rooms above it.
///
/// Called on the thread on which it happens (the sending thread, or the one that takes commands), never by two threads
/// of one connection at a time.
class LinkObserver {
 public:
  /// The recorder has been reached.
  virtual void linkEstablished() = 0;

  /// The recorder was reached and is no more.
  virtual void linkLost() = 0;

  /// What the recorder asked for counts no more: it will ask again.
  virtual void forgetDestinations() = 0;

  /// What waits to be forwarded would be stale when the recorder is back.
  virtual void discardWaiting() = 0;

  /// The recorder made no room for so long, and so many frames that were to leave together were held up.
  virtual void waitedForRoom(std::chrono::milliseconds time, std::size_t frames) = 0;

  /// A command came from elsewhere than the recorder and is not carried out.
  virtual void foreignCommand() = 0;

 protected:
  ~LinkObserver() = default;
};
