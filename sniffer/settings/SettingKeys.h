#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "settings/Settings.h"

namespace voip {

/// A value that is taken as it stands. `oddities` tells what is odd about one, and what is done about it.
struct TextKey {
  std::vector<std::string> (*oddities)(const std::string& value) = nullptr;
  std::string Settings::*member = nullptr;
};

/// Set by exactly "yes". `otherwise` is what a value that is neither "yes" nor "no" comes to.
struct FlagKey {
  bool Settings::*member = nullptr;
  const char* otherwise = "no is assumed";
};

/// Decimal digits and nothing else. A number out of range becomes the nearest in it, another text the default.
struct NumberKey {
  int Settings::*member;
  const char* unit;
  int least;
  int most;
};

/// A key of the settings. Its default is what the member of `Settings` begins with. A key without a member is read by a
/// getter of SnifferConfig, and from a properties file alone: a host has fields of its own for it.
struct SettingKey {
  std::string_view name;
  std::variant<TextKey, FlagKey, NumberKey> value;
  const char* help;
};

namespace setting_oddities {
std::vector<std::string> ofServerName(const std::string& value);
std::vector<std::string> ofServerPort(const std::string& value);
std::vector<std::string> ofServerProtocol(const std::string& value);
std::vector<std::string> ofDevice(const std::string& value);
std::vector<std::string> ofFilter(const std::string& value);
std::vector<std::string> ofLogLevel(const std::string& value);
}  // namespace setting_oddities

/// Every key there is, in the order in which oddities are told.
inline constexpr SettingKey kSettingKeys[] = {
    {"ServerName", TextKey{setting_oddities::ofServerName}, "IPv4 address of the recorder"},
    {"ServerPort", TextKey{setting_oddities::ofServerPort}, "its port"},
    {"ServerProtocol", TextKey{setting_oddities::ofServerProtocol}, "TCP or UDP"},
    {"Device", TextKey{setting_oddities::ofDevice}, "devices to capture on, or file:PATH, separated by ';'"},
    {"Filter", TextKey{setting_oddities::ofFilter}, "libpcap filter expression"},
    {"LogLevel", TextKey{setting_oddities::ofLogLevel}, "DEBUG, INFO, WARN, ERROR or FATAL"},
    {"TraceSignalling", FlagKey{nullptr, "the trace is on"}, "yes turns the trace of H.323 messages OFF"},
    {"Transport", TextKey{}, "read by nobody"},
    {"ProtocolList", TextKey{}, "read by nobody"},
    {"PortList", TextKey{}, "read by nobody"},

    {"ImmediateCapture", FlagKey{&Settings::immediateCapture, "it is not immediate"},
     "frames are handed over within milliseconds, through a large buffer"},
    {"ReopenDevices", FlagKey{&Settings::reopenDevices}, "a device that is missing is tried again every second"},

    {"StatisticsInterval", NumberKey{&Settings::statisticsInterval, "seconds", 0, 86'400},
     "how often the statistics are told; 0: at the end and on SIGUSR2"},
    {"StatisticsFile", TextKey{nullptr, &Settings::statisticsFile}, "all counters, in the Prometheus text format"},

    {"SendTimeout", NumberKey{&Settings::sendTimeout, "milliseconds", 0, 60'000},
     "how long to wait for a TCP recorder that does not read before the connection counts as lost"},
    {"CommandsFromServerOnly", FlagKey{&Settings::commandsFromServerOnly, "anyone's commands are carried out"},
     "UDP: commands of other hosts are ignored"},

    {"LookBack", NumberKey{&Settings::lookBack, "milliseconds", 0, 60'000},
     "how long media that nobody asked for yet is kept"},
    {"LookBackMemory", NumberKey{&Settings::lookBackMemory, "megabytes", 1, 65'536}, "the most that LookBack keeps"},
    {"CaptureTime", FlagKey{&Settings::captureTime},
     "a frame that leaves late is preceded by one that tells when it was captured"},
    {"QueueLimit", NumberKey{&Settings::queueLimit, "megabytes", 0, 1'048'576},
     "the most that waits between capture and sending; 0: no limit"},

    {"Decapsulate", FlagKey{&Settings::decapsulate}, "looks into VLAN tags, MPLS, PPPoE, GRE, ERSPAN, VXLAN, GENEVE"},
    {"ReassembleFragments", FlagKey{&Settings::reassembleFragments}, "puts IPv4 fragments together"},
    {"ReassembleTcp", FlagKey{&Settings::reassembleTcp}, "follows TCP streams: whole H.323 messages, SIP over TCP"},
    {"DropDuplicates", FlagKey{&Settings::dropDuplicates}, "a packet seen twice within 50 ms is forwarded once"},
    {"SipAnyUri", FlagKey{&Settings::sipAnyUri}, "SIP requests to tel:, sips: and urn: are SIP, too"},
};

/// The row of a key, or null when there is no such key.
constexpr const SettingKey* findSettingKey(std::string_view name) {
  for (const SettingKey& key : kSettingKeys) {
    if (key.name == name) return &key;
  }
  return nullptr;
}

/// The member of `Settings` that a key fills exists.
constexpr bool hasMember(const SettingKey& key) {
  return std::visit([](const auto& value) { return value.member != nullptr; }, key.value);
}

}  // namespace voip
