#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace voip {

/// The options of the command-line mode. The texts are those of the command line, not copies.
struct CommandLineOptions {
  const char* devices = nullptr;  ///< -d
  const char* filter = "udp";     ///< -f
  const char* serverName;         ///< -h
  int serverPort;                 ///< -p; the leading digits of the value, 0 without digits
};

/// Returns `defaults` with the values of the command line. Logs an ERROR and the usage for each unknown option, and
/// ignores it.
CommandLineOptions readCommandLine(int argc, char** argv, CommandLineOptions defaults);

/// The options of the file mode.
struct FileOptions {
  static constexpr std::size_t kMaxNameLength = 99;  ///< of the properties file

  std::string cfgFileName = "sniffer.properties";       ///< -c
  std::string logCfgFileName = "./log4cxx.properties";  ///< -l
};

/// Returns nothing, after an ERROR, for an unknown option or a name of a properties file that is too long.
std::optional<FileOptions> readFileOptions(int argc, char** argv);

}  // namespace voip
