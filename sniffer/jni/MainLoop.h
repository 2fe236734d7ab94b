#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "jni/ChannelFields.h"
#include "capture/Sniffer.h"

namespace voip {

/// The one run of the engine that a process can have at a time, and what other threads may do to it.
class MainLoop {
 public:
  /// Never destroyed: threads may still be here when the process ends.
  static MainLoop& dft();

  /// The calling thread takes the run for as long as `body` takes. Another one that has it already keeps it: then an
  /// ERROR says so and nothing is done.
  void run(const std::function<void()>& body);

  /// Inside run(): makes an engine, captures and forwards to the host until stop(). Returns at once when the run has
  /// been stopped before, and, with a line on standard error, when the set-up fails.
  ///
  /// `onSignal` becomes the handler of SIGUSR1, which interrupts the reads of capture threads.
  void sniff(const ChannelFields& fields, void (*onSignal)(int));

  /// Ends the run, if there is one, and returns when capture has stopped.
  void stop();

 private:
  bool begin();
  void end();
  bool publish(Sniffer* engine);
  void retract();
  void stopAtExit();
  static void stopBeforeStaticObjectsGo();
  static void startEngine(Sniffer& engine, void (*onSignal)(int));

  std::mutex lock;
  std::condition_variable changed;
  bool running = false;
  bool stopRequested = false;
  bool processEnds = false;
  bool stopping = false;  ///< a thread is in the engine's stopSniffing()
  std::thread::id runner;
};

}  // namespace voip
