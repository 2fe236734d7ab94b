#include "MainLoop.h"

#include <chrono>
#include <utility>

#include "ChannelMonitor.h"
#include "NativeMethod.h"

/// The engine of the run, or null. MainLoop's to guard.
Sniffer* sniffer = nullptr;

MainLoop& MainLoop::dft() {
  static MainLoop& theMainLoop = *new MainLoop;
  return theMainLoop;
}

bool MainLoop::begin() {
  const std::lock_guard guard(lock);
  if (running) return false;
  running = true;
  stopRequested = false;
  runner = std::this_thread::get_id();
  return true;
}

void MainLoop::end() {
  const std::lock_guard guard(lock);
  running = false;
  changed.notify_all();
}

bool MainLoop::publish(Sniffer* engine) {
  const std::lock_guard guard(lock);
  sniffer = engine;
  return !stopRequested && !processEnds;
}

void MainLoop::retract() {
  std::unique_lock guard(lock);
  changed.wait(guard, [this] { return !stopping; });
  sniffer = nullptr;
}

void MainLoop::stop() {
  std::unique_lock guard(lock);
  if (!running) return;
  if (std::exchange(stopRequested, true)) {
    changed.wait(guard, [this] { return !stopping; });
    return;
  }
  if (sniffer == nullptr) return;
  stopping = true;
  guard.unlock();
  nativeMethod("breakMainLoop", [] { sniffer->stopSniffing(); });
  guard.lock();
  stopping = false;
  changed.notify_all();
}

void MainLoop::stopAtExit() {
  using std::chrono::milliseconds;
  {
    const std::lock_guard guard(lock);
    // Who ends the process from inside the run cannot wait for it.
    if (running && runner == std::this_thread::get_id()) return;
    processEnds = true;
  }
  ChannelMonitor::abandonMachine();
  stop();
  std::unique_lock guard(lock);
  const auto ended = [this] { return !running; };
  for (int tries = 0; tries < 50 && !changed.wait_for(guard, milliseconds(100), ended); ++tries) {
    if (ChannelMonitor::isInsideMachine()) return;
  }
}
