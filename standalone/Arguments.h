#pragma once

#include <string>
#include <utility>
#include <vector>

/// What the command line asks for. The engine has two ways of configuration, by a properties file and by options; the
/// options of the two cannot be mixed.
struct Arguments {
  enum class Action { Run, Check, ListDevices, ListSettings, Help, Version };

  Action action = Action::Run;
  std::vector<std::pair<char, std::string>> options;  ///< those with a value, in their order

  bool inFileMode() const;

  /// The settings file of the file mode.
  std::string cfgFileName() const;

  /// As main() gets them, for the engine: the program's name and the options with a value.
  std::vector<std::string> forEngine() const;
};

/// Fills `arguments` as far as they make sense; returns what does not, or an empty text.
std::string parse(int argc, char** argv, Arguments& arguments);

/// What the engine would overlook in arguments that make sense, or an empty text.
std::string validate(const Arguments& arguments);
