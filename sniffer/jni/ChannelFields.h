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
  Settings settings;  ///< from the fields `settings` and `immediateCapture`, which a host class may lack
};

/// Reads the fields on the calling thread. Logs the warnings of the settings. Returns nothing when a field is missing
/// (the Java exception of the look-up stays pending) or a text field is null.
std::optional<ChannelFields> readChannelFields(JNIEnv* env, jobject channel);

}  // namespace voip
