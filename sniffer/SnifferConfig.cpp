#include "SnifferConfig.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iostream>
#include <utility>

#include "Config.h"

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

const std::string SnifferConfig::Debug = "DEBUG";
const std::string SnifferConfig::Info = "INFO";
const std::string SnifferConfig::Warn = "WARN";
const std::string SnifferConfig::Error = "ERROR";
const std::string SnifferConfig::Fatal = "FATAL";

namespace {
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

std::string SnifferConfig::trim(const std::string& s) {
  return Config::dft()->trim(s);
}

std::string SnifferConfig::validateLogLevel(std::string level) {
  level = trim(level);
  std::transform(level.begin(), level.end(), level.begin(), [](unsigned char c) { return std::toupper(c); });
  const bool known = level == Debug || level == Info || level == Warn || level == Error || level == Fatal;
  return known ? level : std::string();
}
