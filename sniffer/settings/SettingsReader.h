#pragma once

#include <string>
#include <vector>

#include "settings/Config.h"
#include "settings/Settings.h"

namespace voip {

/// The source of a text of settings. A host's text holds only the keys for which the host object has no field.
enum class SettingsOrigin { File, Host };

/// Returns the values of all keys. An invalid value is replaced by the default, a number out of range by the nearest
/// one in range.
Settings readSettings(Config& config);

/// A warning about a setting that has no effect or not the intended one.
struct SettingWarning {
  std::string key;  ///< as it is in the text
  std::string text;
  bool isValue;  ///< the value is invalid; otherwise the key is unknown or repeated
};

/// Returns a warning for each unknown or repeated key and for each invalid value: the line, and what is used instead.
std::vector<SettingWarning> findSettingWarnings(Config& config, SettingsOrigin origin);

/// Logs these warnings.
void logSettingWarnings(Config& config, SettingsOrigin origin);

/// Returns the settings in a host's text of Key=value lines, by the rules of a properties file (see Config). Logs the
/// warnings.
Settings parseHostSettings(const std::string& text);

/// Returns a text with a line for each key: its name, its meaning, unit and range of a number, and the default.
std::string describeSettings();

}  // namespace voip
