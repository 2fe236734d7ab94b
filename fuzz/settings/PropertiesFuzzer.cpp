// Properties files, the device list of the engine, and the settings of a host.

#include <log4cxx/logger.h>

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "capture/Sniffer.h"
#include "settings/SettingKeys.h"
#include "settings/SettingsReader.h"

using namespace voip;

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  log4cxx::Logger::getRootLogger()->setLevel(log4cxx::Level::getOff());
  const std::string input(reinterpret_cast<const char*>(data), size);
  Config config;
  std::istringstream lines(input);
  config.loadLines(lines, "input");
  for (const Config::Line& line : config.getLines()) {
    const std::string value = config.getProperty(line.key);
    require(line.key.size() + value.size() <= 510 && value == Config::trim(value));
  }
  logSettingWarnings(config, SettingsOrigin::File);
  const Settings settings = parseHostSettings(input);
  require(settings == readSettings(config));
  for (const SettingKey& key : kSettingKeys) {
    const auto* number = std::get_if<NumberKey>(&key.value);
    if (number == nullptr) continue;
    require(settings.*number->member >= number->least && settings.*number->member <= number->most);
  }

  static Sniffer engine;
  const std::string devices = config.getProperty("Device");
  engine.setDevice(devices.c_str());
  require(engine.getDeviceCount() <= Sniffer::kMaxDevices);
  for (int i = 0; i < engine.getDeviceCount(); ++i) require(devices.find(engine.getDevice(i)) != std::string::npos);
  engine.setLogLevel(config.getProperty("LogLevel").c_str());
  require(std::string(engine.getLoglevel()).size() <= Sniffer::kMaxLogLevelLength);
  return 0;
}
