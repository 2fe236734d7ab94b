#include "com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel.h"

#include <log4cxx/logger.h>
#include <signal.h>

#include <algorithm>
#include <cstdlib>

#include "ChannelFields.h"
#include "ChannelMonitor.h"
#include "Logging.h"
#include "MainLoop.h"
#include "NativeMethod.h"

namespace {

constexpr int kMaxFrameLength = 65535;

log4cxx::LoggerPtr logger() {
  return log4cxx::Logger::getLogger("SnifferClient");
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

void configure(Sniffer& engine, const ChannelFields& fields) {
  engine.setDevice(fields.nicDevice.c_str());
  engine.setPromiscuous(1);
  engine.setCount(fields.packetCount);
  engine.setFilter(fields.packetFilter.c_str());
  engine.setTraceSignalling(fields.traceSignalling);
  engine.setSettings(fields.settings);
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
  const auto fields = readChannelFields(env, channel);
  if (!fields) return;
  Sniffer engine;
  configure(engine, *fields);
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
