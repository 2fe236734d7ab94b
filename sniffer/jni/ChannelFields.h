#pragma once

#include <jni.h>

#include <optional>
#include <string>

#include "settings/Settings.h"

namespace voip {

/// The fields of the channel object.
struct ChannelFields {
  std::string nicDevice;
  std::string packetFilter;
  int packetCount;
  bool traceSignalling;
  Settings settings;  ///< of the text `settings` and the flag `immediateCapture`, which older host classes do without
};

/// Reads them on the calling thread, and logs what is odd about the settings. Nothing when a field is missing, with the
/// exception of the look-up pending, or holds no text.
std::optional<ChannelFields> readChannelFields(JNIEnv* env, jobject channel);

}  // namespace voip
