// Properties files, and what the engine makes of their device list.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "Config.h"
#include "Sniffer.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

/// A file in memory, under the name that the process sees it by.
std::string writeFile(const uint8_t* data, std::size_t size) {
  static const int sd = static_cast<int>(memfd_create("properties", 0));
  require(ftruncate(sd, 0) == 0);
  require(pwrite(sd, data, size, 0) == static_cast<ssize_t>(size));
  return "/proc/self/fd/" + std::to_string(sd);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  log4cxx::Logger::getRootLogger()->setLevel(log4cxx::Level::getOff());
  Config config;
  config.setCfgFileName(writeFile(data, size));
  config.loadProperties();
  for (const Config::Line& line : config.getLines()) {
    const std::string value = config.getProperty(line.key);
    require(line.key.size() + value.size() <= 510);
    require(value == config.trim(value));
  }

  static Sniffer engine;
  const std::string devices = config.getProperty("Device");
  engine.setDevice(devices.c_str());
  require(engine.getDeviceCount() <= Sniffer::kMaxDevices);
  for (int i = 0; i < engine.getDeviceCount(); ++i) {
    require(devices.find(engine.getDevice(i)) != std::string::npos);
  }
  engine.setLogLevel(config.getProperty("LogLevel").c_str());
  require(std::string(engine.getLoglevel()).size() <= 9);
  return 0;
}
