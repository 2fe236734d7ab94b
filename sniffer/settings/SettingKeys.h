#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "settings/Settings.h"

namespace voip {

/// A text, used unchanged. `check` returns the warnings for a value; null accepts every value.
struct TextKey {
  std::vector<std::string> (*check)(const std::string& value) = nullptr;
  std::string Settings::*member = nullptr;
};

/// True for exactly "yes". `otherwise` is the text of the warning about a value that is neither "yes" nor "no".
struct FlagKey {
  bool Settings::*member = nullptr;
  const char* otherwise = "no is assumed";
};

/// A decimal number. A number out of range is replaced by the nearest one in range, any other text by the default.
struct NumberKey {
  int Settings::*member;
  const char* unit;
  int least;
  int most;
};

/// A key of the settings. Its default is the initial value of the member of `Settings`. A key without a member belongs
/// to the properties file only and is read by a getter of SnifferConfig; a host has a field of the channel object for
/// it.
struct SettingKey {
  std::string_view name;
  std::variant<TextKey, FlagKey, NumberKey> value;
  const char* help;
};

namespace setting_checks {
std::vector<std::string> serverName(const std::string& value);
std::vector<std::string> serverPort(const std::string& value);
std::vector<std::string> serverProtocol(const std::string& value);
std::vector<std::string> device(const std::string& value);
std::vector<std::string> filter(const std::string& value);
std::vector<std::string> logLevel(const std::string& value);
std::vector<std::string> moreRecorders(const std::string& value);
std::vector<std::string> tunnelPorts(const std::string& value);
}  // namespace setting_checks

/// All keys, in the order of their warnings.
inline constexpr SettingKey kSettingKeys[] = {
    {"ServerName", TextKey{setting_checks::serverName}, "IPv4 or IPv6 address of the recorder"},
    {"ServerPort", TextKey{setting_checks::serverPort}, "port of the recorder"},
    {"ServerProtocol", TextKey{setting_checks::serverProtocol}, "TCP or UDP"},
    {"Device", TextKey{setting_checks::device}, "devices to capture on, or file:PATH, separated by ';'"},
    {"Filter", TextKey{setting_checks::filter}, "libpcap filter expression"},
    {"LogLevel", TextKey{setting_checks::logLevel}, "DEBUG, INFO, WARN, ERROR or FATAL"},
    {"TraceSignalling", FlagKey{nullptr, "the trace is on"}, "yes turns the trace of H.323 messages OFF"},
    {"Transport", TextKey{}, "not used"},
    {"ProtocolList", TextKey{}, "not used"},
    {"PortList", TextKey{}, "not used"},

    {"ImmediateCapture", FlagKey{&Settings::immediateCapture, "it is not immediate"},
     "frames arrive within milliseconds, through a large buffer"},
    {"CaptureThreads", NumberKey{&Settings::captureThreads, "threads", 1, 16}, "threads that capture on each device"},
    {"ReopenDevices", FlagKey{&Settings::reopenDevices}, "a missing device is opened again, one attempt a second"},

    {"StatisticsInterval", NumberKey{&Settings::statisticsInterval, "seconds", 0, 86'400},
     "how often the statistics are logged; 0: at the end and on SIGUSR2"},
    {"StatisticsFile", TextKey{nullptr, &Settings::statisticsFile}, "all counters, in the Prometheus text format"},

    {"SendTimeout", NumberKey{&Settings::sendTimeout, "milliseconds", 0, 60'000},
     "how long sending waits for a TCP recorder before the connection counts as lost"},
    {"CommandsFromServerOnly", FlagKey{&Settings::commandsFromServerOnly, "anyone's commands are carried out"},
     "UDP: commands from other hosts are ignored"},
    {"MoreRecorders", TextKey{setting_checks::moreRecorders, &Settings::moreRecorders},
     "further recorders over TCP: ADDRESS:PORT, separated by ';'"},

    {"LookBack", NumberKey{&Settings::lookBack, "milliseconds", 0, 60'000},
     "how long media is kept that the recorder has not asked for yet"},
    {"LookBackMemory", NumberKey{&Settings::lookBackMemory, "megabytes", 1, 65'536},
     "upper limit of the memory of LookBack"},
    {"ResendLast", NumberKey{&Settings::resendLast, "milliseconds", 0, 60'000},
     "with LookBack: what was sent in this time before a TCP recorder was lost is sent again to the next one"},
    {"CaptureTime", FlagKey{&Settings::captureTime}, "a late frame is preceded by a frame with its capture time"},
    {"QueueLimit", NumberKey{&Settings::queueLimit, "megabytes", 0, 1'048'576},
     "upper limit of the queue between capture and sending; 0: no limit"},

    {"Decapsulate", FlagKey{&Settings::decapsulate},
     "removes VLAN tags, MPLS, PPPoE, IP in IP, GRE, ERSPAN, VXLAN, GENEVE, GTP-U, L2TP and TZSP"},
    {"TunnelPorts", TextKey{setting_checks::tunnelPorts, &Settings::tunnelPorts},
     "more UDP ports for Decapsulate, such as vxlan:8472,geneve:6082; also gtp, l2tp, tzsp"},
    {"ReassembleFragments", FlagKey{&Settings::reassembleFragments}, "reassembles fragmented datagrams"},
    {"ReassembleTcp", FlagKey{&Settings::reassembleTcp},
     "reassembles TCP streams: H.323 messages in several segments, SIP over TCP"},
    {"DropDuplicates", FlagKey{&Settings::dropDuplicates},
     "a packet that is captured twice within 50 ms is forwarded once"},
    {"SipAnyUri", FlagKey{&Settings::sipAnyUri}, "recognises SIP requests to tel:, sips: and urn: URIs"},
    {"IPv6", FlagKey{&Settings::ipv6}, "forwards IPv6 packets like IPv4 packets, in frames with a longer header"},
};

/// Returns the row of a key, or null when there is none.
constexpr const SettingKey* findSettingKey(std::string_view name) {
  for (const SettingKey& key : kSettingKeys) {
    if (key.name == name) return &key;
  }
  return nullptr;
}

/// Returns true when the key fills a member of `Settings`.
constexpr bool hasMember(const SettingKey& key) {
  return std::visit([](const auto& value) { return value.member != nullptr; }, key.value);
}

}  // namespace voip
