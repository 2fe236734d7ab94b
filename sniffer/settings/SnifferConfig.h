#pragma once

#include <string>

#include "settings/Settings.h"

/// Typed access to the settings of the properties file. SettingKeys.h lists all keys.
///
/// The text getters return pointers into the table of `Config`, which stay valid until the process ends.
class SnifferConfig {
 public:
  static const std::string ServerName;
  static const std::string ServerPort;
  static const std::string Device;
  static const std::string Filter;
  static const std::string Transport;
  static const std::string ProtocolList;
  static const std::string PortList;
  static const std::string ServerProtocol;
  static const std::string LogLevel;
  static const std::string TraceSignalling;

  static const std::string Debug;
  static const std::string Info;
  static const std::string Warn;
  static const std::string Error;
  static const std::string Fatal;

  /// Loads the file. Ends the process with status 1 when the file cannot be read.
  explicit SnifferConfig(std::string cfgFileName);
  virtual ~SnifferConfig() = default;

  const char* getServerName();      ///< recorder host, IPv4 or IPv6
  int getServerPort();              ///< recorder port: the leading digits of the value, 0 without digits
  const char* getDevice();          ///< device names separated by ';'
  const char* getFilter();          ///< libpcap filter expression; empty matches every packet
  const char* getServerProtocol();  ///< "TCP" or "UDP"
  const char* getTransport();       ///< not used
  const char* getProtocolList();    ///< not used
  const char* getPortList();        ///< not used

  /// Returns the level in upper case, or "INFO" after a message on standard error when the value is no level. The text
  /// stays valid until the next call.
  const char* getLogLevel();

  /// Returns false only when the value is exactly "yes". The sense is the reverse of the key's name; installations rely
  /// on it.
  bool getTraceSignalling();

  /// Returns the values of the other keys.
  voip::Settings getSettings();

  /// Logs a warning for each unknown or repeated key and for each invalid value.
  void logWarnings();

  std::string trim(const std::string& s);

  /// Returns the trimmed level in upper case, or an empty text when it is none of the five.
  std::string validateLogLevel(std::string level);

 private:
  std::string logLevel_;
};
