#pragma once

#include <signal.h>

#include <atomic>
#include <thread>

#include "capture/Sniffer.h"

/// Takes the signals of the program: SIGINT and SIGTERM end it, SIGUSR2 logs the statistics. Tells them when they are
/// due, too, and ends the engine when there is nothing more to capture.
class Watch {
 public:
  /// The status of a program whose devices are all gone: it is better started again.
  static constexpr int kNoDevice = 1;

  /// To be made before any other thread, which shall not get these signals. Until begin() there is nothing to be lost:
  /// a signal to end ends the process at once with status 0, whatever the set-up waits for.
  Watch();

  /// Ends the thread, and the engine no more.
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// From now on `running` is ended properly.
  void begin(Sniffer& running) { engine = &running; }

  /// Waits until the engine has been ended; returns the exit status.
  int finish();

 private:
  void run();
  bool nothingLeft(Sniffer& running);

  sigset_t awaited;
  std::atomic<Sniffer*> engine = nullptr;
  std::atomic<bool> given = false;  ///< up
  int status = 0;
  std::thread thread;
};
