#pragma once

#include <string>
#include <utility>
#include <vector>

/// The command line of the program. The engine is configured by a properties file (-c, -l) or by options (-d, -f, -h,
/// -p); the two cannot be mixed.
struct Arguments {
  enum class Action { Run, Check, ListDevices, ListSettings, Help, Version };

  Action action = Action::Run;
  std::vector<std::pair<char, std::string>> options;  ///< the options with a value, in order

  /// True when the engine is configured by a properties file.
  bool isFileMode() const;

  /// Returns the name of the properties file.
  std::string getCfgFileName() const;

  /// Returns the program's name and the options with a value, in the form that main() gets them.
  std::vector<std::string> getEngineArguments() const;
};

/// Fills `arguments` from the command line. Returns the first error, empty without one.
std::string parse(int argc, char** argv, Arguments& arguments);

/// Checks the values, which the engine would accept without a message. Returns the first error, empty without one.
std::string validate(const Arguments& arguments);

/// True for a number from 1 to 65535 and nothing else.
bool isPort(const std::string& text);
