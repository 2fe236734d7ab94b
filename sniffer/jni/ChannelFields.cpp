#include "jni/ChannelFields.h"

#include <utility>

#include "settings/SettingsReader.h"

namespace voip {

namespace {

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

/// Returns the text of a field that a host class may lack, empty when it does.
std::string readOptionalString(JNIEnv* env, jobject channel, jclass type, const char* name) {
  const auto text = readString(env, channel, type, name);
  if (!text) env->ExceptionClear();
  return text.value_or("");
}

/// Returns the flag of a field that a host class may lack, false when it does.
bool readOptionalFlag(JNIEnv* env, jobject channel, jclass type, const char* name) {
  const jfieldID field = env->GetFieldID(type, name, "Z");
  if (field != nullptr) return env->GetBooleanField(channel, field) != 0;
  env->ExceptionClear();
  return false;
}

}  // namespace

std::optional<ChannelFields> readChannelFields(JNIEnv* env, jobject channel) {
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
  Settings settings = parseHostSettings(readOptionalString(env, channel, type, "settings"));
  if (readOptionalFlag(env, channel, type, "immediateCapture")) settings.immediateCapture = true;
  return ChannelFields{*devices, *filter, count, trace, std::move(settings)};
}

}  // namespace voip
