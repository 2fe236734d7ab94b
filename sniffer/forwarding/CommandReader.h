#pragma once

#include <pthread.h>

#include <atomic>
#include <functional>
#include <string>
#include <utility>

#include "recorder/BaseConnection.h"

namespace voip {

/// Takes the recorder's commands from a connection and carries them out: on the calling thread, or on a command-reader
/// thread that sleeps while no command waits.
class CommandReader {
 public:
  /// Carries out one command.
  using Action = std::function<void(const SnifferRequest&)>;

  /// `carryOut` is called on the thread that takes the commands.
  explicit CommandReader(Action carryOut) : carryOut_(std::move(carryOut)) {}
  CommandReader(const CommandReader&) = delete;
  CommandReader& operator=(const CommandReader&) = delete;

  /// Calls stop().
  ~CommandReader() { stop(); }

  /// Carries out the commands that are readable now. Never waits. One thread at a time.
  void carryOutWaiting(BaseConnection& connection);

  /// Starts a joinable thread at `entry`, which has to call run(); its argument is the name of the thread. Logs success
  /// and failure.
  void start(void* (*entry)(void*));

  /// Carries out commands as they arrive, until signalEnd(). Command-reader thread.
  void run(BaseConnection& connection);

  /// Ends run(). The caller also has to interrupt the connection, in which run() may wait. Any thread.
  void signalEnd() { terminate_ = true; }

  /// True after signalEnd() or stop(). Any thread.
  bool hasEnded() const { return terminate_; }

  /// Ends run() and joins the thread, if one was started. The caller has to interrupt the connection before.
  void stop();

  /// Returns the thread to join, which this object owns, or null when none was started.
  pthread_t* getThread() { return isStarted_ ? &thread_ : nullptr; }

  /// Notes that the caller has joined the thread.
  void joined() { isStarted_ = false; }

 private:
  const Action carryOut_;
  std::string threadName_ = "cmdReaderThread";
  pthread_t thread_{};
  bool isStarted_ = false;
  std::atomic<bool> terminate_ = false;
};

}  // namespace voip
