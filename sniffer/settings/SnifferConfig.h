#pragma once

#include <string>

#include "settings/Settings.h"

/// Typed access to the settings of the properties file. What keys there are, SettingKeys.h tells.
///
/// The text getters return pointers into the table of `Config`, which live until the process ends.
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

  /// Loads the file; the process ends with status 1 when it cannot be read.
  explicit SnifferConfig(std::string cfgFileName);
  virtual ~SnifferConfig() = default;

  const char* getServerName();      ///< recorder host, dotted IPv4
  int getServerPort();              ///< recorder port; the leading digits of the value, 0 when there are none
  const char* getDevice();          ///< device names separated by ';'
  const char* getFilter();          ///< libpcap filter expression; empty matches every packet
  const char* getServerProtocol();  ///< "TCP" or "UDP"
  const char* getTransport();       ///< read by nobody
  const char* getProtocolList();    ///< read by nobody
  const char* getPortList();        ///< read by nobody

  /// The level in upper case; "INFO", with a message on standard error, when the value is no level. Stays valid until
  /// the next call.
  const char* getLogLevel();

  /// False only when the value is exactly "yes": the sense is the reverse of what the key says, and installations
  /// rely on it.
  bool getTraceSignalling();

  /// The keys beyond these.
  voip::Settings getSettings();

  /// Logs a warning for each key that means nothing and each value that makes no sense: the line, and what is assumed.
  void reportOddities();

  std::string trim(const std::string& s);

  /// The trimmed level in upper case, or empty when it is none of the five.
  std::string validateLogLevel(std::string level);

 private:
  std::string logLevel;
};
