#include "Check.h"

#include <strings.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "Arguments.h"
#include "Diagnosis.h"
#include "FilterCheck.h"
#include "base/HostText.h"
#include "settings/MoreRecorders.h"
#include "settings/SettingsReader.h"
#include "statistics/StatisticsFile.h"

using namespace voip;

namespace {

constexpr int kNotReady = 1;

/// Prints errors on standard error, regardless of the configuration of the log, and counts them.
class ErrorList {
 public:
  void add(const std::string& text) {
    std::cerr << "sniffer: " << text << std::endl;
    ++count_;
  }

  int getCount() const { return count_; }

 private:
  int count_ = 0;
};

void printResult(int errors) {
  if (errors == 0) {
    std::cout << "Ready: devices, filter and the recorder's address are good" << std::endl;
  } else {
    std::cout << "Not ready: " << errors << (errors == 1 ? " error" : " errors") << std::endl;
  }
}

void addDeviceErrors(const Sniffer& engine, ErrorList& errors) {
  if (engine.getDeviceCount() == 0) errors.add("no device is set: name one in Device (option -d)");
  bool privilegeMissing = false;
  for (int i = 0; i < engine.getDeviceCount(); ++i) {
    if (!engine.isDeviceDown(i) || isPipe(engine.getDevice(i))) continue;
    const DownDevice device = diagnose(engine, i);
    privilegeMissing = privilegeMissing || device.privilegeMissing;
    errors.add(device.text);
  }
  if (privilegeMissing) explainPrivilege();
}

/// Returns the device that did not take the filter.
int findFilterFailure(const Sniffer& engine) {
  int i = 0;
  while (i + 1 < engine.getDeviceCount() && (engine.isDeviceDown(i) || engine.getDeviceError(i).empty())) ++i;
  return i;
}

void addFilterError(const Sniffer& engine, int status, ErrorList& errors) {
  const int i = findFilterFailure(engine);
  const std::string filter = std::string("the filter \"") + engine.getFilter() + "\" ";
  if (status == Device::kFilterNotCompiled) {
    errors.add(filter + "does not compile: " + engine.getDeviceError(i) +
               "; pcap-filter(7) describes the syntax of Filter (option -f)");
  } else {
    errors.add(filter + "cannot be installed on " + engine.getDevice(i) + ": " + engine.getDeviceError(i) +
               "; simplify it");
  }
}

/// Returns the addresses of the recorders, without ports.
std::vector<std::string> recorderHosts(const Sniffer& engine) {
  std::vector<std::string> hosts{engine.getServerNameMedia()};
  for (const auto& one : readMoreRecorders(engine.getSettings().moreRecorders).addresses) hosts.push_back(one.host);
  return hosts;
}

void addRecorderErrors(const Sniffer& engine, ErrorList& errors) {
  for (const std::string& host : recorderHosts(engine)) {
    if (!lacksDevice(host)) continue;
    errors.add("the recorder's address " + host + " is link-local: write its device, too, as in " + host + "%eth0");
  }
  const std::string name = engine.getServerNameMedia();
  if (!isHost(name)) {
    errors.add("the recorder's address is \"" + name +
               "\": set ServerName (option -h) to an address such as 192.168.3.22 or 2001:db8::22");
  }
  const std::string portText = Config::dft()->getProperty("ServerPort");
  if (const int port = engine.getServerPortMedia(); port < 1 || port > 65535) {
    errors.add("the recorder's port is " + std::to_string(port) +
               ": set ServerPort (option -p) to a number from 1 to 65535");
  } else if (!portText.empty() && !isPort(portText)) {
    errors.add("the recorder's port is \"" + portText + "\", of which " + std::to_string(port) +
               " is used: set ServerPort to a number from 1 to 65535");
  }
  const char* protocol = engine.getServerProtocol();
  if (strcasecmp(protocol, "TCP") != 0 && strcasecmp(protocol, "UDP") != 0) {
    errors.add(std::string("the recorder's protocol is \"") + protocol + "\": set ServerProtocol to TCP or UDP");
  }
}

void printWarning(const std::string& text) {
  std::cerr << "sniffer: warning: " << text << std::endl;
}

void printPipeWarnings(const Sniffer& engine) {
  for (int i = 0; i < engine.getDeviceCount(); ++i) {
    const std::string device = engine.getDevice(i);
    if (isPipe(device)) printWarning("\"" + device + "\" is a pipe: it is not opened, and the filter not tried on it");
  }
}

void printRecorderWarnings(const Sniffer& engine) {
  for (const std::string& host : recorderHosts(engine)) {
    if (isAnyHost(host)) {
      printWarning("the recorder's address " + host +
                   " is where a recorder can listen, not where it is reached: write " + canonicalHost(host) +
                   " for this machine, or the address of another one");
    } else if (isGroupHost(host)) {
      printWarning("the recorder's address " + host + " is that of a group of machines: write the address of one");
    }
  }
  for (const std::string& warning : engine.findRepeatedRecorders()) printWarning(warning + "; remove it");
}

/// True for a setting whose value the checks of devices, filter and recorder report.
bool isCheckedElsewhere(std::string_view key) {
  constexpr std::string_view kKeys[] = {"Device", "Filter", "ServerName", "ServerPort", "ServerProtocol"};
  return std::find(std::begin(kKeys), std::end(kKeys), key) != std::end(kKeys);
}

/// An unknown key is only a warning, because any line of the file with '=' sets a key.
void addSettingErrors(ErrorList& errors) {
  for (const SettingWarning& warning : findSettingWarnings(*Config::dft(), SettingsOrigin::File)) {
    if (!warning.isValue) {
      printWarning(warning.text + "; sniffer --settings prints the keys");
    } else if (!isCheckedElsewhere(warning.key)) {
      errors.add(warning.text + "; correct the value");
    }
  }
  for (const Config::Line& line : Config::dft()->getIgnoredLines()) {
    if (line.key.starts_with('#')) continue;
    errors.add("line " + std::to_string(line.number) + " of the settings is longer than " +
               std::to_string(Config::kMaxLineLength) + " characters and is ignored" +
               (line.key.size() < 40 ? ", so " + line.key + " is not set" : "") + "; make it shorter");
  }
}

void addStatisticsFileError(const std::string& path, ErrorList& errors) {
  if (path.empty()) return;
  const std::string reason = StatisticsFile::tryReplacing(path);
  if (reason.empty()) return;
  errors.add("the statistics file " + path + " cannot be written: " + reason +
             "; set StatisticsFile to a file in a folder that the program may write to");
}

void printFilterWarnings(const Sniffer& engine) {
  for (int i = 0; i < engine.getDeviceCount(); ++i) {
    if (!engine.filtersAfterCopying(i)) continue;
    printWarning(std::string("the kernel does not take the filter on ") + engine.getDevice(i) +
                 ": each frame is copied to the program before it is filtered, which costs many times as much; write "
                 "networks or port ranges instead of single ones (4096 instructions are the most), or raise "
                 "net.core.optmem_max (sysctl)");
  }
  for (const std::string& warning : checkFilter(engine.getFilter(), engine.getSettings())) {
    printWarning(warning);
  }
}

}  // namespace

int check(Sniffer& engine) {
  ErrorList errors;
  const int status = engine.openDevices(false);
  addDeviceErrors(engine, errors);
  printPipeWarnings(engine);
  if (status != 0) addFilterError(engine, status, errors);
  addRecorderErrors(engine, errors);
  addSettingErrors(errors);
  printRecorderWarnings(engine);
  addStatisticsFileError(engine.getSettings().statisticsFile, errors);
  if (status == 0) printFilterWarnings(engine);
  printResult(errors.getCount());
  return errors.getCount() == 0 ? 0 : std::max(status, kNotReady);
}

int reportNoDefaultDevice() {
  ErrorList errors;
  errors.add("libpcap finds no device to capture on: name one with -d");
  printResult(errors.getCount());
  return kNotReady;
}
