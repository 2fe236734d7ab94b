#pragma once

#include <pthread.h>

#include <atomic>
#include <functional>
#include <string>

#include "recorder/BaseConnection.h"

namespace voip {

/// Takes the recorder's commands from a connection and has them carried out: when it is asked to, or on a thread of its
/// own that sleeps while there are none.
class CommandReader {
 public:
  using Action = std::function<void(const SnifferRequest&)>;

  explicit CommandReader(Action carryOut) : carryOut_(std::move(carryOut)) {}
  CommandReader(const CommandReader&) = delete;
  CommandReader& operator=(const CommandReader&) = delete;

  /// Stops the thread if it still runs, and joins it.
  ~CommandReader() { stop(); }

  /// Carries out the commands that are readable now. One thread at a time.
  void carryOutWaiting(BaseConnection& connection);

  /// Starts a joinable thread at `entry`, which has to call run(). Logs success and failure.
  void start(void* (*entry)(void*));

  /// Carries out commands as they come, until the end.
  void run(BaseConnection& connection);

  /// Ends run(); a wait in the connection has to be interrupted as well. Any thread.
  void signalEnd() { terminate_ = true; }
  bool hasEnded() const { return terminate_; }

  /// Stops the thread and joins it, if there is one.
  void stop();

  /// The thread to join, or null when none was started.
  pthread_t* getThread() { return isStarted_ ? &thread_ : nullptr; }

  /// The thread has been joined elsewhere.
  void joined() { isStarted_ = false; }

 private:
  const Action carryOut_;
  std::string threadId_ = "cmdReaderThread";
  pthread_t thread_{};
  bool isStarted_ = false;
  std::atomic<bool> terminate_ = false;
};

}  // namespace voip
