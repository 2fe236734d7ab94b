#include "com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel.h"

#include <log4cxx/logger.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "EmbeddedConnection.h"
#include "Logging.h"
#include "SettingsReader.h"
#include "Sniffer.h"

// The call of mainLoop that is under way, or null. The environment and the object are that thread's: no other may use
// them. The engine is MainLoop's to guard.
JNIEnv* mainLoop_JNIEnv = nullptr;
jobject mainLoop_jobject = nullptr;
Sniffer* sniffer = nullptr;

namespace {

constexpr int kMaxFrameLength = 65535;

/// The process is ending: the virtual machine, which may be gone, is left alone from now on.
std::atomic<bool> processEnds = false;

/// The thread in mainLoop is inside the virtual machine, which at the end of the process does not let it out again.
std::atomic<bool> insideMachine = false;

log4cxx::LoggerPtr logger() {
  return log4cxx::Logger::getLogger("SnifferClient");
}

/// Runs the body of a native method. What it throws ends here, with a line on the standard error stream: logging may be
/// what has failed.
template <typename Body>
void nativeMethod(const char* name, Body body) noexcept {
  try {
    body();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s: %s\n", name, failure.what());
  } catch (...) {
    std::fprintf(stderr, "%s: unknown failure\n", name);
  }
}

/// The channel object's monitor, for the thread in mainLoop. What fails there is taken back: frames are safe without
/// the monitor, and no exception may stay pending under the calls that follow.
class ChannelMonitor final : public HostMonitor {
 public:
  ChannelMonitor(JNIEnv* env, jobject channel) {
    mainLoop_JNIEnv = env;
    mainLoop_jobject = channel;
    EmbeddedConnection::dft()->setHostMonitor(this);
  }
  ~ChannelMonitor() {
    EmbeddedConnection::dft()->setHostMonitor(nullptr);
    mainLoop_JNIEnv = nullptr;
    mainLoop_jobject = nullptr;
  }
  ChannelMonitor(const ChannelMonitor&) = delete;
  ChannelMonitor& operator=(const ChannelMonitor&) = delete;

  void enter() override { entered = call(&JNIEnv::MonitorEnter); }
  void leave() override {
    if (std::exchange(entered, false)) call(&JNIEnv::MonitorExit);
  }

 private:
  bool call(jint (JNIEnv::*operation)(jobject)) {
    insideMachine = true;
    bool done = false;
    if (!processEnds) {
      done = (mainLoop_JNIEnv->*operation)(mainLoop_jobject) == JNI_OK;
      if (!done) mainLoop_JNIEnv->ExceptionClear();
    }
    insideMachine = false;
    return done;
  }

  bool entered = false;
};

/// The one run of the engine that a process can have at a time, and what other threads may do to it.
class MainLoop {
 public:
  /// Never destroyed: threads may still be here when the process ends.
  static MainLoop& dft() {
    static MainLoop& theMainLoop = *new MainLoop;
    return theMainLoop;
  }

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
  bool stopping = false;  ///< a thread is in the engine's stopSniffing()
  std::thread::id runner;
};

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
  }
  processEnds = true;
  stop();
  std::unique_lock guard(lock);
  const auto ended = [this] { return !running; };
  for (int tries = 0; tries < 50 && !changed.wait_for(guard, milliseconds(100), ended); ++tries) {
    if (insideMachine) return;
  }
}

/// The fields of the channel object.
struct ChannelSettings {
  std::string nicDevice;
  std::string packetFilter;
  int packetCount;
  bool traceSignalling;
  Settings beyond;
};

std::optional<std::string> readString(JNIEnv* env, jobject channel, jclass type, const char* name) {
  const jfieldID field = env->GetFieldID(type, name, "Ljava/lang/String;");
  if (field == nullptr) return std::nullopt;
  const auto text = static_cast<jstring>(env->GetObjectField(channel, field));
  if (text == nullptr) return std::nullopt;
  const char* characters = env->GetStringUTFChars(text, nullptr);
  if (characters == nullptr) return std::nullopt;
  const std::string copy = characters;
  env->ReleaseStringUTFChars(text, characters);
  return copy;
}

/// The text of a field that host classes older than it do without.
std::string readOptionalString(JNIEnv* env, jobject channel, jclass type, const char* name) {
  const auto text = readString(env, channel, type, name);
  if (!text) env->ExceptionClear();
  return text.value_or("");
}

bool readOptionalFlag(JNIEnv* env, jobject channel, jclass type, const char* name) {
  const jfieldID field = env->GetFieldID(type, name, "Z");
  if (field != nullptr) return env->GetBooleanField(channel, field) != 0;
  env->ExceptionClear();
  return false;
}

/// Nothing when a field is missing, with the exception of the look-up pending, or holds no text.
std::optional<ChannelSettings> readSettings(JNIEnv* env, jobject channel) {
  const jclass type = env->GetObjectClass(channel);
  const auto devices = readString(env, channel, type, "nicDevice");
  if (!devices) return std::nullopt;
  const auto filter = readString(env, channel, type, "packetFilter");
  if (!filter) return std::nullopt;
  const jfieldID packetCount = env->GetFieldID(type, "packetCount", "I");
  if (packetCount == nullptr) return std::nullopt;
  const jint count = env->GetIntField(channel, packetCount);
  const jfieldID traceSignalling = env->GetFieldID(type, "traceSignalling", "Z");
  if (traceSignalling == nullptr) return std::nullopt;
  const bool trace = env->GetBooleanField(channel, traceSignalling) != 0;
  Settings beyond = parseHostSettings(readOptionalString(env, channel, type, "settings"));
  if (readOptionalFlag(env, channel, type, "immediateCapture")) beyond.immediateCapture = true;
  return ChannelSettings{*devices, *filter, count, trace, std::move(beyond)};
}

void installSignalHandler() {
  struct sigaction action {};
  action.sa_handler = signalHandler;  // without SA_RESTART: the signal ends a blocked read
  sigemptyset(&action.sa_mask);
  sigaction(SIGUSR1, &action, nullptr);
}

void stopBeforeStaticObjectsGo() {
  static const bool once = [] { return std::atexit([] { MainLoop::dft().stopAtExit(); }) == 0; }();
  if (!once) logger()->warn("The end of the process will not stop the capture");
}

void configure(Sniffer& engine, const ChannelSettings& settings) {
  engine.setDevice(settings.nicDevice.c_str());
  engine.setPromiscuous(1);
  engine.setCount(settings.packetCount);
  engine.setFilter(settings.packetFilter.c_str());
  engine.setTraceSignalling(settings.traceSignalling);
  engine.setSettings(settings.beyond);
  engine.setEmbedded(true);
}

void runEngine(Sniffer& engine) {
  stopBeforeStaticObjectsGo();
  if (engine.setupSniffing() != 0) {
    std::fputs("Errors in setup, terminating...\n", stderr);
    return;
  }
  installSignalHandler();
  try {
    engine.startSniffing();
  } catch (...) {
    engine.stopSniffing();
    throw;
  }
}

void runMainLoop(JNIEnv* env, jobject channel) {
  const ChannelMonitor monitor(env, channel);
  configureLogging("./log4cxx.properties");
  const auto settings = readSettings(env, channel);
  if (!settings) return;
  Sniffer engine;
  configure(engine, *settings);
  nativeMethod("mainLoop", [&] {
    if (MainLoop::dft().publish(&engine)) runEngine(engine);
  });
  MainLoop::dft().retract();
}

}  // namespace

void signalHandler(int) {}

void JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_mainLoop(JNIEnv* env, jobject channel) {
  if (!MainLoop::dft().begin()) {
    nativeMethod("mainLoop", [] { logger()->error("mainLoop is running already, a second call of it does nothing"); });
    return;
  }
  nativeMethod("mainLoop", [&] { runMainLoop(env, channel); });
  MainLoop::dft().end();
}

void JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_breakMainLoop(JNIEnv*, jobject) {
  MainLoop::dft().stop();
}

jint JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_getPacket(JNIEnv* env, jobject,
                                                                                   jbyteArray buffer) {
  if (buffer == nullptr) return 0;
  // Only the frame goes into the array: pinning or copying the elements would cost by the size of the array.
  char frame[kMaxFrameLength];
  const int capacity = std::min<jsize>(env->GetArrayLength(buffer), kMaxFrameLength);
  const int length = EmbeddedConnection::dft()->receivePacket(frame, capacity);
  if (length > 0) env->SetByteArrayRegion(buffer, 0, length, reinterpret_cast<const jbyte*>(frame));
  return length;
}

jint JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_sendRequest(JNIEnv* env, jobject,
                                                                                     jbyteArray buffer) {
  if (buffer == nullptr) return 0;
  const jsize length = env->GetArrayLength(buffer);
  if (length < SnifferRequest::kWireLength) return 0;
  u_char wire[SnifferRequest::kWireLength];
  env->GetByteArrayRegion(buffer, 0, SnifferRequest::kWireLength, reinterpret_cast<jbyte*>(wire));
  SnifferRequest request = SnifferRequest::fromWire(wire);
  jint result = 0;
  nativeMethod("sendRequest", [&] {
    if (EmbeddedConnection::dft()->sendRequest(request)) result = length;
  });
  return result;
}
