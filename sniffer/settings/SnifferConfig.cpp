#include "settings/SnifferConfig.h"

#include <cstdlib>
#include <iostream>
#include <utility>

#include "settings/Config.h"
#include "settings/Logging.h"
#include "settings/SettingKeys.h"
#include "settings/SettingsReader.h"

using namespace voip;

namespace {

/// Returns the name of a key. Does not compile when the table lacks the key.
consteval const char* nameOf(const char* key) {
  return findSettingKey(key)->name.data();
}

const char* text(const std::string& key) {
  return Config::dft()->getPropertyText(key).c_str();
}

}  // namespace

const std::string SnifferConfig::ServerName = nameOf("ServerName");
const std::string SnifferConfig::ServerPort = nameOf("ServerPort");
const std::string SnifferConfig::Device = nameOf("Device");
const std::string SnifferConfig::Filter = nameOf("Filter");
const std::string SnifferConfig::Transport = nameOf("Transport");
const std::string SnifferConfig::ProtocolList = nameOf("ProtocolList");
const std::string SnifferConfig::PortList = nameOf("PortList");
const std::string SnifferConfig::ServerProtocol = nameOf("ServerProtocol");
const std::string SnifferConfig::LogLevel = nameOf("LogLevel");
const std::string SnifferConfig::TraceSignalling = nameOf("TraceSignalling");

const std::string SnifferConfig::Debug = "DEBUG";
const std::string SnifferConfig::Info = "INFO";
const std::string SnifferConfig::Warn = "WARN";
const std::string SnifferConfig::Error = "ERROR";
const std::string SnifferConfig::Fatal = "FATAL";

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
  logLevel_ = validateLogLevel(Config::dft()->getProperty(LogLevel));
  if (!logLevel_.empty()) return logLevel_.c_str();
  std::cerr << "Invalid LogLevel, assuming INFO" << std::endl;
  return Info.c_str();
}

bool SnifferConfig::getTraceSignalling() {
  return Config::dft()->getProperty(TraceSignalling) != "yes";
}

Settings SnifferConfig::getSettings() {
  return readSettings(*Config::dft());
}

void SnifferConfig::logWarnings() {
  logSettingWarnings(*Config::dft(), SettingsOrigin::File);
}

std::string SnifferConfig::trim(const std::string& s) {
  return Config::trim(s);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): published signature
std::string SnifferConfig::validateLogLevel(std::string level) {
  return logLevelNamed(level);
}
