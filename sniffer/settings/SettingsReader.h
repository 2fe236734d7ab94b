#pragma once

#include <string>

#include "settings/Config.h"
#include "settings/Settings.h"

namespace voip {

/// Whose settings these are: a host gives those that it has no fields for.
enum class SettingsOrigin { File, Host };

/// The values of the table's keys. What makes no sense is as if it were absent, or the nearest that does.
Settings readSettings(Config& config);

/// Logs a warning for each key that means nothing and each value that makes no sense: the line, and what is assumed.
void reportOddities(Config& config, SettingsOrigin origin);

/// The settings in a host's text of Key=value lines, under the rules of a properties file (see Config). Logs its
/// oddities.
Settings parseHostSettings(const std::string& text);

/// A line for each key: its name, what it does, its default.
std::string describeSettings();

}  // namespace voip
