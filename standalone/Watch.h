#pragma once

#include <signal.h>

#include <atomic>
#include <thread>

#include "capture/Sniffer.h"

/// The thread that awaits the signals of the program: SIGINT, SIGTERM and SIGHUP stop the engine, SIGUSR2 logs the
/// statistics. SIGHUP stays ignored when it was ignored before. The thread also logs the statistics at their interval,
/// and stops the engine when capture has finished.
class Watch {
 public:
  /// The exit status of a program whose devices are all gone. A service manager restarts it.
  static constexpr int kNoDevice = 1;

  /// Blocks the signals in the calling thread, so make it before any other thread. Until begin(), SIGINT, SIGTERM and
  /// SIGHUP end the process at once with status 0: nothing can be lost yet, and the set-up may take long.
  Watch();

  /// Stops the watch thread; does not stop the engine.
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// From now on a signal stops `engine`.
  void begin(Sniffer& engine) { engine_ = &engine; }

  /// Waits until the watch thread has stopped the engine. Returns the exit status of the program.
  int finish();

 private:
  void run();
  bool captureFinished(Sniffer& engine);

  sigset_t signals_;
  std::atomic<Sniffer*> engine_ = nullptr;
  std::atomic<bool> ended_ = false;
  int status_ = 0;
  std::thread thread_;
};
