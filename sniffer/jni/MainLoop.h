#pragma once

#include <chrono>
#include <functional>
#include <thread>

#include "base/Mutex.h"
#include "capture/Sniffer.h"
#include "jni/ChannelFields.h"

namespace voip {

/// The run of the engine inside the host, at most one in a process at a time. Any thread may call any operation.
class MainLoop {
 public:
  /// Returns the instance of the process. It is never destroyed: threads may use it while the process ends.
  static MainLoop& dft();

  /// Calls `body` as the run of the calling thread. When another thread has a run, logs an ERROR and does nothing.
  void run(const std::function<void()>& body);

  /// Inside run(): makes an engine, captures and forwards to the host until stop(). Returns at once when the run has
  /// been stopped already, and, after a line on standard error, when the set-up fails.
  ///
  /// `onSignal` becomes the handler of SIGUSR1, which interrupts the reads of the capture threads.
  void sniff(const ChannelFields& fields, void (*onSignal)(int));

  /// Stops the run, if there is one. Returns when capture has stopped.
  void stop();

 private:
  bool begin();
  void end();
  bool publish(Sniffer* engine);
  void retract();
  Sniffer* beginStop();
  void endStop();
  void stopAtExit();
  bool endsWithin(std::chrono::milliseconds time);
  static void stopBeforeStaticObjectsGo();
  static void startEngine(Sniffer& engine, void (*onSignal)(int));

  Mutex mutex_;
  Condition changed_;
  bool running_ GUARDED_BY(mutex_) = false;
  std::thread::id runner_ GUARDED_BY(mutex_);
  bool stopRequested_ GUARDED_BY(mutex_) = false;
  bool stopping_ GUARDED_BY(mutex_) = false;  ///< a thread is in the engine's stopSniffing()
  bool processEnds_ GUARDED_BY(mutex_) = false;
};

}  // namespace voip
