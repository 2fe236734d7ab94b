#include "jni/MainLoop.h"

#include <signal.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "jni/ChannelMonitor.h"
#include "jni/NativeMethod.h"
#include "settings/Logging.h"
#include "base/Logger.h"

/// The engine of the run, or null. MainLoop guards it.
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
  static MainLoop& theMainLoop = *new MainLoop;
  return theMainLoop;
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

/// The calling thread takes the run. False when another one has it.
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

/// Lets stop() reach the engine. False when the run has been stopped before.
bool MainLoop::publish(Sniffer* engine) {
  const std::lock_guard guard(lock);
  sniffer = engine;
  return !stopRequested && !processEnds;
}

/// Afterwards no other thread uses the engine.
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

void MainLoop::stopBeforeStaticObjectsGo() {
  // What the stop logs with must be there before it is registered, or it is gone when the stop comes.
  makeLogLevels();
  static const bool once = [] { return std::atexit([] { dft().stopAtExit(); }) == 0; }();
  if (!once) logger().warn("The end of the process will not stop the capture");
}

/// Ends the run as the process ends, so that nothing logs or captures while static objects are destroyed.
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

}  // namespace voip
