#pragma once

#include <string>
#include <vector>

#include "settings/Settings.h"

/// Returns a warning for each setting that has no effect because the filter excludes all frames that the setting is
/// for. Only a filter that lets through plain SIP or RTP is judged.
std::vector<std::string> checkFilter(const char* filter, const voip::Settings& settings);
