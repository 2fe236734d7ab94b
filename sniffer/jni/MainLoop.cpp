#include "jni/MainLoop.h"

#include <signal.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "base/Logger.h"
#include "jni/ChannelMonitor.h"
#include "jni/NativeMethod.h"
#include "settings/Logging.h"

/// The engine of the run, or null. The mutex of MainLoop guards it.
Sniffer* sniffer = nullptr;

namespace voip {

namespace {

void installSignalHandler(void (*onSignal)(int)) {
  struct sigaction action {};
  action.sa_handler = onSignal;  // without SA_RESTART: the signal ends a blocked read
  sigemptyset(&action.sa_mask);
  sigaction(SIGUSR1, &action, nullptr);
}

void configure(Sniffer& engine, const ChannelFields& fields) {
  engine.setDevice(fields.nicDevice.c_str());
  engine.setPromiscuous(1);
  engine.setCount(fields.packetCount);
  engine.setFilter(fields.packetFilter.c_str());
  engine.setTraceSignalling(fields.traceSignalling);
  engine.setSettings(fields.settings);
  engine.setEmbedded(true);
}

}  // namespace

MainLoop& MainLoop::dft() {
  static MainLoop& theOne = *new MainLoop;
  return theOne;
}

void MainLoop::run(const std::function<void()>& body) {
  if (!begin()) {
    logger().error("mainLoop is running already, a second call of it does nothing");
    return;
  }
  nativeMethod("mainLoop", body);
  end();
}

void MainLoop::sniff(const ChannelFields& fields, void (*onSignal)(int)) {
  Sniffer engine;
  configure(engine, fields);
  nativeMethod("mainLoop", [&] {
    if (publish(&engine)) startEngine(engine, onSignal);
  });
  retract();
}

void MainLoop::startEngine(Sniffer& engine, void (*onSignal)(int)) {
  stopBeforeStaticObjectsGo();
  if (engine.setupSniffing() != 0) {
    std::fputs("Errors in setup, terminating...\n", stderr);
    return;
  }
  installSignalHandler(onSignal);
  try {
    engine.startSniffing();
  } catch (...) {
    engine.stopSniffing();
    throw;
  }
}

/// Makes the calling thread the one that runs the engine. Returns false when another thread already runs it.
bool MainLoop::begin() {
  const MutexLock lock(mutex_);
  if (running_) return false;
  running_ = true;
  stopRequested_ = false;
  runner_ = std::this_thread::get_id();
  return true;
}

void MainLoop::end() {
  const MutexLock lock(mutex_);
  running_ = false;
  changed_.notifyAll();
}

/// Makes the engine known to stop(). Returns false when the run has been stopped already.
bool MainLoop::publish(Sniffer* engine) {
  const MutexLock lock(mutex_);
  sniffer = engine;
  return !stopRequested_ && !processEnds_;
}

/// After this no other thread uses the engine.
void MainLoop::retract() {
  const MutexLock lock(mutex_);
  while (stopping_) changed_.wait(mutex_);
  sniffer = nullptr;
}

void MainLoop::stop() {
  Sniffer* const engine = beginStop();
  if (engine == nullptr) return;
  nativeMethod("breakMainLoop", [&] { engine->stopSniffing(); });
  endStop();
}

/// Returns the engine that the calling thread has to stop. Returns null when there is none, and after another thread
/// has stopped it.
Sniffer* MainLoop::beginStop() {
  const MutexLock lock(mutex_);
  if (!running_) return nullptr;
  if (std::exchange(stopRequested_, true)) {
    while (stopping_) changed_.wait(mutex_);
    return nullptr;
  }
  stopping_ = sniffer != nullptr;
  return sniffer;
}

void MainLoop::endStop() {
  const MutexLock lock(mutex_);
  stopping_ = false;
  changed_.notifyAll();
}

// ---- the end of the process ----

/// Registers a stop that runs before the static objects are destroyed that capture and logging use.
void MainLoop::stopBeforeStaticObjectsGo() {
  // Objects that are made after the registration are destroyed before the stop, so the stop could not log with them.
  makeLogLevels();
  static const bool registered = [] { return std::atexit([] { dft().stopAtExit(); }) == 0; }();
  if (!registered) logger().warn("The end of the process will not stop the capture");
}

void MainLoop::stopAtExit() {
  {
    const MutexLock lock(mutex_);
    // A thread that ends the process from inside the run cannot wait for the run.
    if (running_ && runner_ == std::this_thread::get_id()) return;
    processEnds_ = true;
  }
  ChannelMonitor::abandonMachine();
  stop();
  for (int tries = 0; tries < 50 && !endsWithin(std::chrono::milliseconds(100)); ++tries) {
    if (ChannelMonitor::isInsideMachine()) return;
  }
}

bool MainLoop::endsWithin(std::chrono::milliseconds time) {
  const auto end = Condition::Clock::now() + time;
  const MutexLock lock(mutex_);
  while (running_ && changed_.waitUntil(mutex_, end)) {
  }
  return !running_;
}

}  // namespace voip
