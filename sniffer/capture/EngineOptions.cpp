#include "capture/EngineOptions.h"

#include <getopt.h>

#include <cstdlib>

#include "base/Logger.h"

namespace voip {

namespace {

// The published text. It names options that do not exist.
constexpr const char* kCommandLineUsage =
    "Usage: UdpSniffer [-d device] [-f filter] [-h server] [-p port] [-i serverSig]\t\t\t\t\t[-q portSig] [-c count] "
    "[-e]\nwhere:\n\t-d The device name to sniff, defaults pcap choses device; e.g. eth0\n\t-f The sniff filter, "
    "defaults to udp; e.g. udp\n\t-h The server host name, defaults to 127.0.0.1; e.g. 192.168.3.22\n\t-p The server "
    "port name, defaults to 6000; e.g. 6000\n\t-i The signalling server hostname, defaults to server host; e.g. "
    "192.168.3.22\n\t-q The signalling server port, defaults to server port; e.g. 6001\n\t-c The number of packets to "
    "sniff, defaults to -1, -1 endless loop; e.g -1\n";

constexpr const char* kFileUsage = "Usage: sniffer [-c <cfgFileName>] [-l <logCfgFileName>]";

/// Starts a new parse with getopt(), also when the last one ended within an argument.
void restartGetopt() {
  optind = 0;
}

}  // namespace

CommandLineOptions readCommandLine(int argc, char** argv, CommandLineOptions defaults) {
  CommandLineOptions options = defaults;
  restartGetopt();
  for (int option; (option = getopt(argc, argv, "d:f:h:p:")) != -1;) {
    switch (option) {
      case 'd':
        options.devices = optarg;
        break;
      case 'f':
        options.filter = optarg;
        break;
      case 'h':
        options.serverName = optarg;
        break;
      case 'p':
        options.serverPort = std::atoi(optarg);
        break;
      default:
        logger().error("Invalid argument " + std::to_string(option));
        logger().error(kCommandLineUsage);
    }
  }
  return options;
}

std::optional<FileOptions> readFileOptions(int argc, char** argv) {
  FileOptions options;
  restartGetopt();
  for (int option; (option = getopt(argc, argv, "c:l:")) != -1;) {
    switch (option) {
      case 'c':
        options.cfgFileName = optarg;
        if (options.cfgFileName.size() > FileOptions::kMaxNameLength) {
          logger().error("The name of the configuration file is too long: " + options.cfgFileName + ", at most " +
                         std::to_string(FileOptions::kMaxNameLength) + " characters are possible");
          return std::nullopt;
        }
        break;
      case 'l':
        options.logCfgFileName = optarg;
        break;
      default:
        logger().error(kFileUsage);
        return std::nullopt;
    }
  }
  return options;
}

}  // namespace voip
