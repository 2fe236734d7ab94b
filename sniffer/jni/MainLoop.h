#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "Sniffer.h"

/// The one run of the engine that a process can have at a time, and what other threads may do to it.
class MainLoop {
 public:
  /// Never destroyed: threads may still be here when the process ends.
  static MainLoop& dft();

  /// The calling thread takes the run. False when another one has it.
  bool begin();
  void end();

  /// Lets stop() reach the engine. False when the run has been stopped before.
  bool publish(Sniffer* engine);

  /// Takes the engine back: afterwards no other thread uses it.
  void retract();

  /// Ends the run, if there is one, and returns when capture has stopped.
  void stop();

  /// Ends the run as the process ends, so that nothing logs or captures while static objects are destroyed.
  void stopAtExit();

 private:
  std::mutex lock;
  std::condition_variable changed;
  bool running = false;
  bool stopRequested = false;
  bool processEnds = false;
  bool stopping = false;  ///< a thread is in the engine's stopSniffing()
  std::thread::id runner;
};
