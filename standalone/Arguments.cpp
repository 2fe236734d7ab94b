#include "Arguments.h"

#include <getopt.h>

#include <algorithm>
#include <cctype>
#include <string_view>

#include "base/HostText.h"
#include "capture/EngineOptions.h"

using namespace voip;

namespace {

constexpr std::string_view kFileOptions = "cl";

bool isFileOption(char option) {
  return kFileOptions.find(option) != std::string_view::npos;
}

}  // namespace

bool isPort(const std::string& text) {
  const bool digits = std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
  if (text.empty() || text.size() > 5 || !digits) return false;
  const int port = std::stoi(text);
  return port >= 1 && port <= 65535;
}

bool Arguments::isFileMode() const {
  return std::all_of(options.begin(), options.end(), [](const auto& one) { return isFileOption(one.first); });
}

std::string Arguments::getCfgFileName() const {
  std::string name = "sniffer.properties";
  for (const auto& [option, value] : options) {
    if (option == 'c') name = value;
  }
  return name;
}

std::vector<std::string> Arguments::getEngineArguments() const {
  std::vector<std::string> words = {"sniffer"};
  for (const auto& [option, value] : options) {
    words.push_back(std::string("-") + option);
    words.push_back(value);
  }
  return words;
}

std::string parse(int argc, char** argv, Arguments& arguments) {
  enum { kFirstLong = 256, kHelp = kFirstLong, kVersion, kCheck, kListDevices, kListSettings };
  const option longOptions[] = {{"help", no_argument, nullptr, kHelp},
                                {"version", no_argument, nullptr, kVersion},
                                {"check", no_argument, nullptr, kCheck},
                                {"list-devices", no_argument, nullptr, kListDevices},
                                {"settings", no_argument, nullptr, kListSettings},
                                {nullptr, 0, nullptr, 0}};
  const auto act = [&](Arguments::Action action) {
    arguments.action = action;
    return std::string();
  };
  opterr = 0;
  for (int option; (option = getopt_long(argc, argv, ":c:l:d:f:h:p:", longOptions, nullptr)) != -1;) {
    // In a group of letters only the wrong one is named.
    const bool isLetter = optopt > 0 && optopt < kFirstLong;
    const std::string wrong = isLetter ? std::string("-") + static_cast<char>(optopt) : argv[optind - 1];
    switch (option) {
      case kHelp:
        return act(Arguments::Action::Help);
      case kVersion:
        return act(Arguments::Action::Version);
      case kListDevices:
        return act(Arguments::Action::ListDevices);
      case kListSettings:
        return act(Arguments::Action::ListSettings);
      case kCheck:
        act(Arguments::Action::Check);
        break;
      case ':':
        return wrong + " needs a value";
      case '?':
        return "unknown option " + wrong;
      default:
        arguments.options.emplace_back(static_cast<char>(option), optarg);
    }
  }
  return optind < argc ? std::string("unexpected argument ") + argv[optind] : std::string();
}

std::string validate(const Arguments& arguments) {
  std::string fileOptions;
  std::string lineOptions;
  for (const auto& [option, value] : arguments.options) {
    (isFileOption(option) ? fileOptions : lineOptions) += std::string(" -") + option;
    if (option == 'c' && value.size() > FileOptions::kMaxNameLength) {
      return "-c takes a name of at most " + std::to_string(FileOptions::kMaxNameLength) + " characters, not " + value;
    }
    if (option == 'h' && !voip::isHost(value)) {
      return "-h takes an address such as 192.168.3.22 or 2001:db8::22, not " + value;
    }
    if (option == 'p' && !isPort(value)) return "-p takes a port from 1 to 65535, not " + value;
  }
  if (fileOptions.empty() || lineOptions.empty()) return {};
  return "the options of the two ways are mixed:" + fileOptions + " for a properties file," + lineOptions +
         " for settings from the command line";
}
