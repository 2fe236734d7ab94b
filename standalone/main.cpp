// The stand-alone sniffer: reads its settings, starts the engine, and stops it on SIGINT, on SIGTERM, or when all
// capture files have been replayed.

#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Check.h"
#include "Diagnosis.h"
#include "Watch.h"
#include "capture/Sniffer.h"
#include "settings/Logging.h"
#include "settings/MoreRecorders.h"
#include "settings/SettingsReader.h"

using namespace voip;

namespace {

constexpr const char* kLogCfgFileName = "./log4cxx.properties";
constexpr int kFailure = 1;  // bad arguments or no device

constexpr const char* kUsage =
    R"help(Forwards the VoIP traffic that a call recorder needs from a mirror port or a tap.

Usage: sniffer [-c FILE] [-l FILE]                       settings from a properties file
       sniffer [-d DEVICES] [-f FILTER] [-h HOST] [-p PORT]   settings from the command line

  -c FILE     settings, default sniffer.properties
  -l FILE     log4cxx settings, default ./log4cxx.properties

  -d DEVICES  devices to capture on: names separated by ';', at most ten; default: libpcap's choice.
              file:PATH replays a capture file at its own pace and needs no privilege
  -f FILTER   libpcap filter expression, default udp
  -h HOST     IPv4 or IPv6 address of the recorder, default 127.0.0.1
  -p PORT     its TCP port, default 6000

  --check         check the devices, the filter and the recorder's address, print the result and end
  --list-devices  print the devices of this machine
  --settings      print the keys of the properties file
  --help          print this text
  --version       print the version

Filters: "udp" captures SIP and RTP; "udp or tcp" H.323 as well, whose H.245 connections use ports of their own
choice; "udp or tcp port 1720" H.323 with fast start or tunnelled H.245. With VLAN tags: "udp or (vlan and udp)".

Capturing on a device needs the capability CAP_NET_RAW. SIGINT and SIGTERM end the program, SIGUSR2 makes it log its
statistics.

Exit status: 0 ended on request, 1 bad arguments or no device, 3 the filter does not compile, 4 it cannot be installed.
)help";

int configure(Sniffer& engine, const Arguments& arguments, std::vector<std::string>& words) {
  std::vector<char*> texts;
  for (std::string& word : words) texts.push_back(word.data());
  texts.push_back(nullptr);
  const int argc = static_cast<int>(words.size());
  if (!arguments.isFileMode()) {
    if (access(kLogCfgFileName, R_OK) == 0) {
      configureLogging(kLogCfgFileName);
    } else {
      logToConsole();
    }
    return engine.configure(argc, texts.data());
  }
  if (access(arguments.getCfgFileName().c_str(), R_OK) != 0) {
    std::cerr << "sniffer: cannot read the settings file " << arguments.getCfgFileName()
              << "; name another with -c, or give the settings by options (sniffer --help)" << std::endl;
  }
  return engine.configureFromFile(argc, texts.data());
}

std::string furtherRecorders(const Sniffer& engine) {
  std::string text;
  for (const auto& one : readMoreRecorders(engine.getSettings().moreRecorders).addresses) text += ", " + one.text();
  return text.empty() ? text : ", to further recorders over TCP:" + text.substr(1);
}

void printConfiguration(const Sniffer& engine) {
  std::string devices;
  for (int i = 0; i < engine.getDeviceCount(); ++i) devices += (i > 0 ? ", " : "") + std::string(engine.getDevice(i));
  std::cout << "Capturing on " << (devices.empty() ? "no device" : devices) << " (filter \"" << engine.getFilter()
            << "\"), sending to the recorder at " << engine.getServerNameMedia() << ":" << engine.getServerPortMedia()
            << " over " << engine.getServerProtocol() << furtherRecorders(engine) << std::endl;
}

int checkSettings(const Arguments& arguments) {
  std::vector<std::string> words = arguments.getEngineArguments();
  Sniffer engine;
  if (configure(engine, arguments, words) != 0) return reportNoDefaultDevice();
  return check(engine);
}

int run(const Arguments& arguments) {
  std::vector<std::string> words = arguments.getEngineArguments();  // the engine copies nothing
  Watch watch;
  Sniffer engine;
  if (const int failure = configure(engine, arguments, words); failure != 0) return failure;
  printConfiguration(engine);
  if (const int failure = engine.setupSniffing(); failure != 0) return failure;
  explainDownDevices(engine);
  if (engine.allDevicesDown()) {
    std::cerr << "sniffer: no device could be opened" << std::endl;
    return kFailure;
  }
  watch.begin(engine);
  engine.startSniffing();
  return watch.finish();
}

int act(const Arguments& arguments) {
  switch (arguments.action) {
    case Arguments::Action::Help:
      std::cout << kUsage;
      return 0;
    case Arguments::Action::Version:
      std::cout << "sniffer " SNIFFER_VERSION << std::endl;
      return 0;
    case Arguments::Action::ListDevices:
      return listDevices() ? 0 : kFailure;
    case Arguments::Action::ListSettings:
      std::cout << describeSettings();
      return 0;
    case Arguments::Action::Check:
      return checkSettings(arguments);
    case Arguments::Action::Run:
      break;
  }
  return run(arguments);
}

}  // namespace

int main(int argc, char** argv) {
  Arguments arguments;
  std::string error = parse(argc, argv, arguments);
  if (error.empty()) error = validate(arguments);
  if (error.empty()) return act(arguments);
  std::cerr << "sniffer: " << error << "\nTry 'sniffer --help'." << std::endl;
  return kFailure;
}
