#pragma once


#include <istream>
#include <map>
#include <string>
#include <vector>

/// A flat text of key=value lines, read once into a table.
///
/// - A line without '=' is skipped; there is no other comment mechanism, so "# Port=1" sets the key "# Port".
/// - The key is everything before the first '=', not trimmed: "Port = 1" sets the key "Port " with its blank.
/// - The value is everything behind it, trimmed of blanks, tabs and carriage returns.
/// - Of two lines with the same key the first counts.
///
/// Used by one thread, at start-up.
class Config {
 public:
  Config() = default;
  Config(const Config&) = delete;
  virtual ~Config() = default;

  /// The instance of this process, made on first use and never destroyed.
  static Config* dft();

  void setCfgFileName(std::string fileName);

  /// Adds the file's keys to the table; keys that it holds already keep their values. A file that cannot be read ends
  /// the process with status 1. A line of more than 511 characters is skipped with a warning.
  void loadProperties();

  /// The same with the lines of a text; `name` is what a warning calls it.
  void loadLines(std::istream& text, const std::string& name);

  /// A line that sets a key.
  struct Line {
    int number;  ///< from 1
    std::string key;
  };

  /// The lines of the last load that set a key, in order.
  const std::vector<Line>& getLines() const { return lines; }

  /// The value of `key`; empty when it is absent.
  std::string getProperty(std::string key);

  /// The table's own copy of the value, which stays as it is until the process ends. An absent key is added, empty.
  const std::string& getPropertyText(const std::string& key);

  /// `s` without the blanks, tabs, carriage returns and line feeds at both ends.
  static std::string trim(const std::string& s);

 private:
  void addLine(const std::string& line, int number);
  [[noreturn]] void failToRead();

  std::map<std::string, std::string> properties;
  std::string cfgFileName;
  std::vector<Line> lines;

  static Config* config;
};
