#include "settings/SettingsReader.h"

#include <netinet/in.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <iomanip>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "base/HostText.h"
#include "base/Logger.h"
#include "settings/Logging.h"
#include "settings/MoreRecorders.h"
#include "settings/SettingKeys.h"
#include "settings/StringTokenizer.h"
#include "settings/TunnelPorts.h"

namespace voip {

namespace {

constexpr const char* kYes = "yes";
constexpr const char* kNo = "no";

/// Returns the number, or nothing for another text. A number beyond 32 bits is out of every range, so the largest or
/// smallest 32-bit number is returned for it.
std::optional<int> wholeNumber(const std::string& value) {
  int number = 0;
  const char* end = value.data() + value.size();
  const auto [stop, error] = std::from_chars(value.data(), end, number);
  if (stop != end || error == std::errc::invalid_argument) return std::nullopt;
  if (error == std::errc()) return number;
  return value.starts_with('-') ? INT_MIN : INT_MAX;
}

int inRange(const NumberKey& key, std::optional<int> number) {
  return number ? std::clamp(*number, key.least, key.most) : Settings().*key.member;
}

void readInto(Settings& settings, const TextKey& key, const std::string& value) {
  if (key.member != nullptr) settings.*key.member = value;
}

void readInto(Settings& settings, const FlagKey& key, const std::string& value) {
  if (key.member != nullptr) settings.*key.member = value == kYes;
}

void readInto(Settings& settings, const NumberKey& key, const std::string& value) {
  settings.*key.member = inRange(key, wholeNumber(value));
}

std::vector<std::string> warningsFor(const TextKey& key, const std::string& value) {
  return key.check != nullptr ? key.check(value) : std::vector<std::string>();
}

std::vector<std::string> warningsFor(const FlagKey& key, const std::string& value) {
  if (value.empty() || value == kYes || value == kNo) return {};
  return {std::string("neither yes nor no, ") + key.otherwise};
}

std::vector<std::string> warningsFor(const NumberKey& key, const std::string& value) {
  const auto number = wholeNumber(value);
  const int used = inRange(key, number);
  if (value.empty() || number == used) return {};
  return {std::string("not a number of ") + key.unit + " from " + std::to_string(key.least) + " to " +
          std::to_string(key.most) + ", " + std::to_string(used) + " is used"};
}

void warnAboutKeys(Config& config, SettingsOrigin origin, std::vector<SettingWarning>& warnings) {
  std::map<std::string, int> seen;
  for (const auto& [number, key] : config.getLines()) {
    const auto [first, isNew] = seen.emplace(key, number);
    const std::string where = "Line " + std::to_string(number) + " of the settings: ";
    const auto warn = [&, &key = key](const std::string& text) { warnings.push_back({key, where + text, false}); };
    if (key.starts_with('#')) continue;
    const SettingKey* known = findSettingKey(key);
    if (known == nullptr) {
      const bool blanks = findSettingKey(Config::trim(key)) != nullptr;
      warn("\"" + key + "\" is no setting" + (blanks ? ", blanks in front of '=' belong to the key" : "") +
           ", ignored");
    } else if (origin == SettingsOrigin::Host && !hasMember(*known)) {
      warn(key + " is not for the host's settings, ignored");
    } else if (!isNew) {
      warn(key + " is set again, line " + std::to_string(first->second) + " counts");
    }
  }
}

SettingWarning valueWarning(Config& config, const std::string& key, const std::string& warning) {
  const auto& lines = config.getLines();
  const auto line = std::find_if(lines.begin(), lines.end(), [&](const auto& one) { return one.key == key; });
  const std::string where = line == lines.end() ? "The settings have no " + key
                                                : "Line " + std::to_string(line->number) + " of the settings: " + key +
                                                      "=" + config.getProperty(key);
  return {key, where + ", " + warning, true};
}

/// Returns the unit and the range of a number, and the default.
std::string describeValue(const SettingKey& key) {
  const Settings defaults;
  if (const auto* flag = std::get_if<FlagKey>(&key.value)) {
    return std::string("; default ") + (flag->member != nullptr && defaults.*flag->member ? kYes : kNo);
  }
  if (const auto* number = std::get_if<NumberKey>(&key.value)) {
    return std::string("; ") + number->unit + ", " + std::to_string(number->least) + " to " +
           std::to_string(number->most) + ", default " + std::to_string(defaults.*number->member);
  }
  return {};
}

}  // namespace

namespace setting_checks {

std::vector<std::string> serverName(const std::string& value) {
  if (isHost(value)) return {};
  return {"the recorder is not reachable without an IPv4 or IPv6 address"};
}

std::vector<std::string> serverPort(const std::string& value) {
  const int port = std::atoi(value.c_str());
  if (port >= 1 && port <= 65535) return {};
  return {"a port is a number from 1 to 65535, port " + std::to_string(static_cast<in_port_t>(port)) + " is used"};
}

std::vector<std::string> serverProtocol(const std::string& value) {
  if (strcasecmp(value.c_str(), "TCP") == 0 || strcasecmp(value.c_str(), "UDP") == 0) return {};
  return {std::string(strncasecmp(value.c_str(), "UDP", 3) == 0 ? "UDP" : "TCP") + " is used"};
}

std::vector<std::string> device(const std::string& value) {
  StringTokenizer names(value.c_str(), ';');
  if (!names.hasMoreTokens()) return {"nothing is captured"};
  std::vector<std::string> warnings;
  std::set<std::string> devices;
  while (names.hasMoreTokens()) {
    const std::string name = names.nextToken();
    if (name.empty()) warnings.emplace_back("there is an empty name in the list");
    if (!devices.insert(name).second) warnings.push_back(name + " is in the list twice and its frames are sent twice");
  }
  return warnings;
}

std::vector<std::string> filter(const std::string& value) {
  if (!value.empty()) return {};
  return {"everything is captured"};
}

std::vector<std::string> logLevel(const std::string& value) {
  if (value.empty() || !logLevelNamed(value).empty()) return {};
  return {"INFO is used"};
}

std::vector<std::string> moreRecorders(const std::string& value) {
  return readMoreRecorders(value).wrong;
}

std::vector<std::string> tunnelPorts(const std::string& value) {
  std::vector<std::string> warnings;
  const TunnelPorts ports(value, &warnings);
  return warnings;
}

}  // namespace setting_checks

Settings readSettings(Config& config) {
  Settings settings;
  for (const SettingKey& key : kSettingKeys) {
    const std::string value = config.getProperty(std::string(key.name));
    std::visit([&](const auto& kind) { readInto(settings, kind, value); }, key.value);
  }
  return settings;
}

std::vector<SettingWarning> findSettingWarnings(Config& config, SettingsOrigin origin) {
  std::vector<SettingWarning> all;
  warnAboutKeys(config, origin, all);
  for (const SettingKey& key : kSettingKeys) {
    if (origin == SettingsOrigin::Host && !hasMember(key)) continue;
    const std::string name(key.name);
    const std::string value = config.getProperty(name);
    const auto warnings = std::visit([&](const auto& kind) { return warningsFor(kind, value); }, key.value);
    for (const std::string& warning : warnings) all.push_back(valueWarning(config, name, warning));
  }
  const Settings settings = readSettings(config);
  if (settings.resendLast > 0 && settings.lookBack == 0) {
    all.push_back({"ResendLast", "ResendLast does nothing without LookBack", false});
  } else if (settings.resendLast > 0 && strncasecmp(config.getProperty("ServerProtocol").c_str(), "UDP", 3) == 0) {
    all.push_back(
        {"ResendLast", "ResendLast does nothing for the recorder of ServerName, which is reached over UDP", false});
  }
  return all;
}

void logSettingWarnings(Config& config, SettingsOrigin origin) {
  for (const SettingWarning& warning : findSettingWarnings(config, origin)) logger().warn(warning.text);
}

Settings parseHostSettings(const std::string& text) {
  Config config;
  std::istringstream lines(text);
  config.loadLines(lines, "the host's settings");
  logSettingWarnings(config, SettingsOrigin::Host);
  return readSettings(config);
}

std::string describeSettings() {
  std::ostringstream text;
  for (const SettingKey& key : kSettingKeys) {
    text << std::left << std::setw(24) << key.name << key.help << describeValue(key) << "\n";
  }
  return text.str();
}

}  // namespace voip
