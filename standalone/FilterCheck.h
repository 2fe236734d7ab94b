#pragma once

#include <string>
#include <vector>

#include "settings/Settings.h"

/// Returns a warning for each setting that has no effect because the filter excludes all frames that the setting needs.
/// Checks only filters that let through UDP or TCP over IPv4, with or without a VLAN tag. Also returns a warning for
/// each word that makes an alternative after it apply to the bytes after a header.
std::vector<std::string> checkFilter(const char* filter, const voip::Settings& settings);
