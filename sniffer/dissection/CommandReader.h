#pragma once

#include <log4cxx/logger.h>
#include <pthread.h>

#include <atomic>
#include <functional>
#include <string>

#include "BaseConnection.h"

/// Takes the recorder's commands from a connection and has them carried out: when it is asked to, or on a thread of its
/// own that sleeps while there are none.
class CommandReader {
 public:
  using Action = std::function<void(const SnifferRequest&)>;

  explicit CommandReader(Action action) : carryOut(std::move(action)) {}
  CommandReader(const CommandReader&) = delete;
  CommandReader& operator=(const CommandReader&) = delete;

  /// Ends the thread if it still runs, and joins it.
  ~CommandReader() { stop(); }

  /// Carries out what is readable now. One thread at a time.
  void carryOutWaiting(BaseConnection& connection);

  /// Starts a joinable thread at `entry`, which is to call run(). Told in the log, the failure too.
  void start(void* (*entry)(void*));

  /// Carries out commands as they come, until the end.
  void run(BaseConnection& connection);

  /// Ends run(); whoever waits in the connection has to be interrupted as well. Any thread.
  void signalEnd() { terminate = true; }
  bool hasEnded() const { return terminate; }

  /// Ends the thread and joins it, if there is one.
  void stop();

  /// The thread to join, or null when none was started.
  pthread_t* getThread() { return started ? &thread : nullptr; }

  /// To be told by whoever joined the thread.
  void joined() { started = false; }

 private:
  Action carryOut;
  std::string threadId = "cmdReaderThread";
  pthread_t thread{};
  bool started = false;
  std::atomic<bool> terminate = false;

  static log4cxx::LoggerPtr logger;
};
