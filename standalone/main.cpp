// The stand-alone sniffer: reads its settings, starts the engine, and ends it on SIGINT, on SIGTERM, or when all
// capture files have been replayed.

#include <arpa/inet.h>
#include <getopt.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "Diagnosis.h"
#include "Logging.h"
#include "Sniffer.h"

namespace {

constexpr const char* kLogCfgFileName = "./log4cxx.properties";
constexpr const char* kCfgFileName = "sniffer.properties";
constexpr int kBadArguments = 1;  // or no device

constexpr const char* kHelp =
    R"help(Forwards the VoIP traffic that a call recorder needs from a mirror port or a tap.

Usage: sniffer [-c FILE] [-l FILE]                       settings from a properties file
       sniffer [-d DEVICES] [-f FILTER] [-h HOST] [-p PORT]   settings from the command line

  -c FILE     settings, default sniffer.properties
  -l FILE     log4cxx settings, default ./log4cxx.properties

  -d DEVICES  what to capture on: names separated by ';', at most ten; default: libpcap's choice.
              file:PATH replays a capture file at its own pace, without any privilege
  -f FILTER   libpcap filter expression, default udp
  -h HOST     IPv4 address of the recorder, default 127.0.0.1
  -p PORT     its TCP port, default 6000

  --check         open the devices, compile the filter, tell the result and end
  --list-devices  the devices of this machine
  --help          this text
  --version       the version

Filters: "udp" captures SIP and RTP; "udp or tcp" H.323 as well, whose H.245 connections use ports of their own
choice; "udp or tcp port 1720" H.323 with fast start or tunnelled H.245. With VLAN tags: "udp or (vlan and udp)".

Capturing on a device needs the capability CAP_NET_RAW. SIGINT and SIGTERM end the program, SIGUSR2 makes it log its
statistics.

Exit status: 0 ended on request, 1 bad arguments or no device, 3 the filter does not compile, 4 it cannot be installed.
)help";

struct Arguments {
  bool fileMode = true;
  bool checkOnly = false;
  const char* cfgFileName = kCfgFileName;
  std::vector<std::string> forEngine;  ///< the program's name, and the options that the engine reads itself
};

[[noreturn]] void refuse(const std::string& reason) {
  std::cerr << "sniffer: " << reason << "\nTry 'sniffer --help'." << std::endl;
  std::exit(kBadArguments);
}

bool isPort(const std::string& text) {
  if (text.empty() || text.size() > 5) return false;
  for (const unsigned char c : text) {
    if (!std::isdigit(c)) return false;
  }
  const int port = std::stoi(text);
  return port >= 1 && port <= 65535;
}

bool isIpv4Address(const char* text) {
  in_addr address;
  return inet_pton(AF_INET, text, &address) == 1;
}

/// Refuses what the engine would overlook, and tells which of its two ways of configuration is meant.
Arguments checkArguments(int argc, char** argv) {
  enum { kHelpOption = 256, kVersionOption, kCheckOption, kListOption };
  const option longOptions[] = {{"help", no_argument, nullptr, kHelpOption},
                                {"version", no_argument, nullptr, kVersionOption},
                                {"check", no_argument, nullptr, kCheckOption},
                                {"list-devices", no_argument, nullptr, kListOption},
                                {nullptr, 0, nullptr, 0}};
  Arguments arguments;
  arguments.forEngine.push_back(argv[0]);
  std::string fileOptions;
  std::string lineOptions;
  opterr = 0;
  for (int option; (option = getopt_long(argc, argv, ":c:l:d:f:h:p:", longOptions, nullptr)) != -1;) {
    if (option < kHelpOption && optarg != nullptr) {
      arguments.forEngine.push_back(std::string("-") + static_cast<char>(option));
      arguments.forEngine.push_back(optarg);
    }
    switch (option) {
      case kHelpOption:
        std::cout << kHelp;
        std::exit(0);
      case kVersionOption:
        std::cout << "sniffer " SNIFFER_VERSION << std::endl;
        std::exit(0);
      case kListOption:
        std::exit(listDevices() ? 0 : kBadArguments);
      case kCheckOption:
        arguments.checkOnly = true;
        break;
      case 'c':
        arguments.cfgFileName = optarg;
        [[fallthrough]];
      case 'l':
        fileOptions += std::string(" -") + static_cast<char>(option);
        break;
      case 'h':
        if (!isIpv4Address(optarg)) refuse(std::string("-h takes an IPv4 address such as 192.168.3.22, not ") + optarg);
        lineOptions += " -h";
        break;
      case 'p':
        if (!isPort(optarg)) refuse(std::string("-p takes a port from 1 to 65535, not ") + optarg);
        lineOptions += " -p";
        break;
      case 'd':
      case 'f':
        lineOptions += std::string(" -") + static_cast<char>(option);
        break;
      case ':':
        refuse(std::string(argv[optind - 1]) + " needs a value");
      default:
        refuse(std::string("unknown option ") + argv[optind - 1]);
    }
  }
  if (optind < argc) refuse(std::string("unexpected argument ") + argv[optind]);
  if (!fileOptions.empty() && !lineOptions.empty()) {
    refuse("the options of the two ways are mixed:" + fileOptions + " for a properties file," + lineOptions +
           " for settings from the command line");
  }
  arguments.fileMode = lineOptions.empty();
  return arguments;
}

void handleSignals(sigset_t& awaited) {
  // Blocked here, and so in every thread: only the one that waits for them takes them.
  sigemptyset(&awaited);
  sigaddset(&awaited, SIGINT);
  sigaddset(&awaited, SIGTERM);
  sigaddset(&awaited, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &awaited, nullptr);
  signal(SIGPIPE, SIG_IGN);
  // Does nothing: being delivered, without SA_RESTART, is enough to interrupt a capture thread's read.
  struct sigaction interrupt = {};
  interrupt.sa_handler = [](int) {};
  sigaction(SIGUSR1, &interrupt, nullptr);
}

int configure(Sniffer& engine, Arguments& arguments) {
  std::vector<char*> texts;
  for (std::string& text : arguments.forEngine) texts.push_back(text.data());
  const int argc = static_cast<int>(texts.size());
  texts.push_back(nullptr);
  if (!arguments.fileMode) {
    if (access(kLogCfgFileName, R_OK) == 0) {
      configureLogging(kLogCfgFileName);
    } else {
      logToConsole();
    }
    return engine.configure(argc, texts.data());
  }
  if (access(arguments.cfgFileName, R_OK) != 0) {
    std::cerr << "sniffer: cannot read the settings file " << arguments.cfgFileName
              << "; name another with -c, or give the settings by options (sniffer --help)" << std::endl;
  }
  return engine.configureFromFile(argc, texts.data());
}

void tellWhatHappens(const Sniffer& engine) {
  std::string devices;
  for (int i = 0; i < engine.getDeviceCount(); ++i) devices += (i > 0 ? ", " : "") + std::string(engine.getDevice(i));
  std::cout << "Capturing on " << (devices.empty() ? "no device" : devices) << " (filter \"" << engine.getFilter()
            << "\"), sending to the recorder at " << engine.getServerNameMedia() << ":" << engine.getServerPortMedia()
            << " over " << engine.getServerProtocol() << std::endl;
}

/// Opens what the settings name and tells how that went. The recorder is not asked.
int check(Sniffer& engine) {
  int status = engine.openDevices();
  explainDownDevices(engine);
  for (int i = 0; i < engine.getDeviceCount(); ++i) {
    if (engine.isDeviceDown(i)) status = std::max(status, kBadArguments);
  }
  if (engine.getDeviceCount() == 0) status = kBadArguments;
  std::cout << (status == 0 ? "Devices and filter are good" : "Devices or filter will not do, see above") << std::endl;
  return status;
}

/// Ends the engine on a signal, or when there is nothing more to capture. Meanwhile it logs the statistics when they
/// are due or asked for. Leaves the exit status in `status`: a program whose devices are all gone is better started
/// again.
void awaitEnd(Sniffer& engine, const sigset_t& awaited, int& status) {
  using Clock = std::chrono::steady_clock;
  const std::chrono::seconds interval(engine.getSettings().statisticsInterval);
  auto due = Clock::now() + interval;
  const timespec pause{0, 50'000'000};
  status = 0;
  while (true) {
    const int received = sigtimedwait(&awaited, nullptr, &pause);
    if (received == SIGINT || received == SIGTERM) break;
    if (engine.captureFinished()) {
      if (!engine.replaysOnly()) {
        std::cerr << "sniffer: there is no device left to capture on" << std::endl;
        status = kBadArguments;
      }
      break;
    }
    const bool isDue = interval.count() > 0 && Clock::now() >= due;
    if (received == SIGUSR2 || isDue) engine.logStatistics();
    if (isDue) due += interval;
  }
  engine.stopSniffing();
}

}  // namespace

int main(int argc, char** argv) {
  Arguments arguments = checkArguments(argc, argv);
  sigset_t awaited;
  handleSignals(awaited);

  Sniffer engine;
  if (const int failure = configure(engine, arguments); failure != 0) return failure;
  if (arguments.checkOnly) return check(engine);
  tellWhatHappens(engine);
  if (const int failure = engine.setupSniffing(); failure != 0) return failure;
  explainDownDevices(engine);
  if (engine.allDevicesDown()) {
    std::cerr << "sniffer: no device could be opened" << std::endl;
    return kBadArguments;
  }
  int status = 0;
  std::thread end(awaitEnd, std::ref(engine), std::cref(awaited), std::ref(status));
  engine.startSniffing();
  end.join();
  return status;
}
