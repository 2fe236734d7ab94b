#include "jni/com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

#include "jni/ChannelFields.h"
#include "jni/ChannelMonitor.h"
#include "jni/MainLoop.h"
#include "jni/NativeMethod.h"
#include "settings/Logging.h"

using namespace voip;

namespace {

constexpr int kMaxFrameLength = 65535;

void runMainLoop(JNIEnv* env, jobject channel) {
  const ChannelMonitor monitor(env, channel);
  configureLogging("./log4cxx.properties");
  if (const auto fields = readChannelFields(env, channel)) MainLoop::dft().sniff(*fields, signalHandler);
}

void throwIllegalArgument(JNIEnv* env, const std::string& text) {
  env->ThrowNew(env->FindClass("java/lang/IllegalArgumentException"), text.c_str());
}

/// A write to a read-only buffer could end the process: the buffer may be a file that is mapped without write access.
bool isReadOnly(JNIEnv* env, jobject buffer) {
  static const jmethodID method = env->GetMethodID(env->FindClass("java/nio/Buffer"), "isReadOnly", "()Z");
  const bool result = env->CallBooleanMethod(buffer, method) != 0;
  return env->ExceptionCheck() == 0 && result;
}

/// Returns the memory of a direct buffer that may be written. Throws a Java exception and returns null for any other
/// object.
char* writableMemory(JNIEnv* env, jobject buffer) {
  void* const memory = buffer != nullptr ? env->GetDirectBufferAddress(buffer) : nullptr;
  if (memory == nullptr || isReadOnly(env, buffer)) {
    throwIllegalArgument(env, "getPackets needs a direct buffer that is not read-only");
    return nullptr;
  }
  return static_cast<char*>(memory);
}

}  // namespace

void signalHandler(int) {}

void JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_mainLoop(JNIEnv* env, jobject channel) {
  nativeMethod("mainLoop", [&] { MainLoop::dft().run([&] { runMainLoop(env, channel); }); });
}

void JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_breakMainLoop(JNIEnv*, jobject) {
  MainLoop::dft().stop();
}

jint JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_getPacket(JNIEnv* env, jobject,
                                                                                   jbyteArray buffer) {
  if (buffer == nullptr) return 0;
  // SetByteArrayRegion() copies only the frame. GetByteArrayElements() may copy the whole array.
  char frame[kMaxFrameLength];
  const int capacity = std::min<jsize>(env->GetArrayLength(buffer), kMaxFrameLength);
  int length = 0;
  nativeMethod("getPacket", [&] { length = EmbeddedConnection::dft()->receivePacket(frame, capacity); });
  if (length > 0) env->SetByteArrayRegion(buffer, 0, length, reinterpret_cast<const jbyte*>(frame));
  return length;
}

jint JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_getPackets(JNIEnv* env, jobject,
                                                                                    jobject buffer) {
  char* const memory = writableMemory(env, buffer);
  if (memory == nullptr) return 0;
  const auto capacity =
      static_cast<int>(std::min<jlong>(env->GetDirectBufferCapacity(buffer), std::numeric_limits<int>::max()));
  int length = 0;
  nativeMethod("getPackets", [&] { length = EmbeddedConnection::dft()->receivePackets(memory, capacity); });
  if (length >= 0) return length;
  throwIllegalArgument(
      env, "the oldest frame has " + std::to_string(-length) + " bytes, the buffer only " + std::to_string(capacity));
  return 0;
}

jint JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_sendRequest(JNIEnv* env, jobject,
                                                                                     jbyteArray buffer) {
  if (buffer == nullptr) return 0;
  const jsize length = env->GetArrayLength(buffer);
  if (length < SnifferRequest::kWireLength) return 0;
  std::uint8_t wire[SnifferRequest::kIpv6WireLength];
  env->GetByteArrayRegion(buffer, 0, SnifferRequest::kWireLength, reinterpret_cast<jbyte*>(wire));
  SnifferRequest request = SnifferRequest::fromWire(wire);
  // The command may wait for a main loop, whose settings decide whether it has an effect.
  const bool isIpv6 = SnifferRequest::wireLength(wire[0], true) > SnifferRequest::kWireLength;
  if (isIpv6 && length < SnifferRequest::kIpv6WireLength) {
    if (EmbeddedConnection::dft()->takesIpv6()) return 0;
  } else if (isIpv6) {
    env->GetByteArrayRegion(buffer, 0, SnifferRequest::kIpv6WireLength, reinterpret_cast<jbyte*>(wire));
    request = SnifferRequest::fromIpv6Wire(wire);
  }
  jint result = 0;
  nativeMethod("sendRequest", [&] {
    if (EmbeddedConnection::dft()->sendRequest(request)) result = length;
  });
  return result;
}
