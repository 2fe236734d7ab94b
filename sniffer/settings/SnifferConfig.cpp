#include "SnifferConfig.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iostream>
#include <map>
#include <set>
#include <utility>

#include "Config.h"
#include "StringTokenizer.h"

const std::string SnifferConfig::ServerName = "ServerName";
const std::string SnifferConfig::ServerPort = "ServerPort";
const std::string SnifferConfig::Device = "Device";
const std::string SnifferConfig::Filter = "Filter";
const std::string SnifferConfig::Transport = "Transport";
const std::string SnifferConfig::ProtocolList = "ProtocolList";
const std::string SnifferConfig::PortList = "PortList";
const std::string SnifferConfig::ServerProtocol = "ServerProtocol";
const std::string SnifferConfig::LogLevel = "LogLevel";
const std::string SnifferConfig::TraceSignalling = "TraceSignalling";
const std::string SnifferConfig::ImmediateCapture = "ImmediateCapture";
const std::string SnifferConfig::StatisticsInterval = "StatisticsInterval";

const std::string SnifferConfig::Debug = "DEBUG";
const std::string SnifferConfig::Info = "INFO";
const std::string SnifferConfig::Warn = "WARN";
const std::string SnifferConfig::Error = "ERROR";
const std::string SnifferConfig::Fatal = "FATAL";

log4cxx::LoggerPtr SnifferConfig::logger = log4cxx::Logger::getLogger("SnifferClient");

namespace {
const std::set<std::string> kKeys = {"ServerName", "ServerPort",      "Device",           "Filter",
                                     "Transport",  "ProtocolList",    "PortList",         "ServerProtocol",
                                     "LogLevel",   "TraceSignalling", "ImmediateCapture", "StatisticsInterval"};

const char* text(const std::string& key) {
  return Config::dft()->getPropertyText(key).c_str();
}
}  // namespace

SnifferConfig::SnifferConfig(std::string cfgFileName) {
  Config::dft()->setCfgFileName(std::move(cfgFileName));
  Config::dft()->loadProperties();
}

const char* SnifferConfig::getServerName() {
  return text(ServerName);
}
int SnifferConfig::getServerPort() {
  return std::atoi(text(ServerPort));
}
const char* SnifferConfig::getDevice() {
  return text(Device);
}
const char* SnifferConfig::getFilter() {
  return text(Filter);
}
const char* SnifferConfig::getServerProtocol() {
  return text(ServerProtocol);
}
const char* SnifferConfig::getTransport() {
  return text(Transport);
}
const char* SnifferConfig::getProtocolList() {
  return text(ProtocolList);
}
const char* SnifferConfig::getPortList() {
  return text(PortList);
}

const char* SnifferConfig::getLogLevel() {
  logLevel = validateLogLevel(Config::dft()->getProperty(LogLevel));
  if (!logLevel.empty()) return logLevel.c_str();
  std::cerr << "Invalid LogLevel, assuming INFO" << std::endl;
  return Info.c_str();
}

bool SnifferConfig::getTraceSignalling() {
  return Config::dft()->getProperty(TraceSignalling) != "yes";
}

bool SnifferConfig::getImmediateCapture() {
  return Config::dft()->getProperty(ImmediateCapture) == "yes";
}

int SnifferConfig::getStatisticsInterval() {
  return std::max(0, std::atoi(text(StatisticsInterval)));
}

void SnifferConfig::reportOddities() {
  reportKeys();
  reportValues();
}

void SnifferConfig::reportKeys() {
  std::map<std::string, int> seen;
  for (const auto& [number, key] : Config::dft()->getLines()) {
    const auto [first, isNew] = seen.emplace(key, number);
    const std::string where = "Line " + std::to_string(number) + " of the settings: ";
    if (key.starts_with('#')) continue;
    if (!kKeys.contains(key)) {
      const bool blanks = kKeys.contains(trim(key));
      logger->warn(where + "\"" + key + "\" is no setting" +
                   (blanks ? ", blanks in front of '=' belong to the key" : "") + ", ignored");
    } else if (!isNew) {
      logger->warn(where + key + " is set again, line " + std::to_string(first->second) + " counts");
    }
  }
}

void SnifferConfig::warn(const std::string& key, const std::string& assumption) {
  const auto& lines = Config::dft()->getLines();
  const auto line = std::find_if(lines.begin(), lines.end(), [&](const auto& one) { return one.key == key; });
  const std::string where = line == lines.end()
                                ? "The settings have no " + key
                                : "Line " + std::to_string(line->number) + " of the settings: " + key + "=" + text(key);
  logger->warn(where + ", " + assumption);
}

void SnifferConfig::reportValues() {
  in_addr address;
  if (inet_pton(AF_INET, getServerName(), &address) != 1) {
    warn(ServerName, "the recorder is not reachable without a dotted IPv4 address");
  }
  if (const int port = getServerPort(); port < 1 || port > 65535) {
    warn(ServerPort,
         "a port is a number from 1 to 65535, port " + std::to_string(static_cast<u_short>(port)) + " is used");
  }
  const std::string protocol = getServerProtocol();
  if (strcasecmp(protocol.c_str(), "TCP") != 0 && strcasecmp(protocol.c_str(), "UDP") != 0) {
    warn(ServerProtocol, std::string(strncasecmp(protocol.c_str(), "UDP", 3) == 0 ? "UDP" : "TCP") + " is used");
  }
  std::set<std::string> devices;
  StringTokenizer names(getDevice(), ';');
  if (!names.hasMoreTokens()) warn(Device, "nothing is captured");
  while (names.hasMoreTokens()) {
    const std::string name = names.nextToken();
    if (name.empty()) warn(Device, "there is an empty name in the list");
    if (!devices.insert(name).second) warn(Device, name + " is in the list twice and its frames are sent twice");
  }
  if (*getFilter() == 0) warn(Filter, "everything is captured");
  if (*text(LogLevel) != 0 && validateLogLevel(text(LogLevel)).empty()) warn(LogLevel, "INFO is used");
  reportFlag(TraceSignalling, "the trace is on");
  reportFlag(ImmediateCapture, "it is not immediate");
  if (*text(StatisticsInterval) != 0 && getStatisticsInterval() == 0) {
    warn(StatisticsInterval, "no statistics are logged");
  }
}

void SnifferConfig::reportFlag(const std::string& key, const std::string& assumption) {
  const std::string value = text(key);
  if (!value.empty() && value != "yes" && value != "no") warn(key, "neither yes nor no, " + assumption);
}

std::string SnifferConfig::trim(const std::string& s) {
  return Config::dft()->trim(s);
}

std::string SnifferConfig::validateLogLevel(std::string level) {
  level = trim(level);
  std::transform(level.begin(), level.end(), level.begin(), [](unsigned char c) { return std::toupper(c); });
  const bool known = level == Debug || level == Info || level == Warn || level == Error || level == Fatal;
  return known ? level : std::string();
}
