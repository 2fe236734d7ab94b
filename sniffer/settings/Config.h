#pragma once

#include <cstddef>
#include <istream>
#include <map>
#include <string>
#include <vector>

/// The table of a properties file: a text of key=value lines.
///
/// - A line without '=' is skipped. There is no other comment mechanism, so "# Port=1" sets the key "# Port".
/// - The key is the text before the first '=', not trimmed: "Port = 1" sets the key "Port " with its blank.
/// - The value is the text after the first '=', without blanks, tabs and carriage returns at both ends.
/// - When a key occurs twice, the first line wins.
///
/// For one thread at a time: a look-up may add a key.
class Config {
 public:
  static constexpr std::size_t kMaxLineLength = 511;  ///< longer lines are ignored

  Config() = default;
  Config(const Config&) = delete;
  virtual ~Config() = default;

  /// Returns the instance of the process, which is made on first use and never destroyed.
  static Config* dft();

  void setCfgFileName(std::string fileName);

  /// Adds the keys of the file to the table. A key that is in the table keeps its value. Ends the process with status 1
  /// when the file cannot be read. Skips lines of more than 511 characters with a warning.
  void loadProperties();

  /// Adds the keys of a text. Warnings call the text `name`.
  void loadLines(std::istream& text, const std::string& name);

  /// A line that sets a key.
  struct Line {
    int number;  ///< counted from 1
    std::string key;
  };

  /// The lines of the last load that set a key, in the order of the file.
  const std::vector<Line>& getLines() const { return lines_; }

  /// The lines of the last load that were too long, with what would be their key.
  const std::vector<Line>& getIgnoredLines() const { return ignoredLines_; }

  /// Returns the value of `key`, empty when the key is absent.
  std::string getProperty(std::string key);

  /// Returns the value in the table. The reference stays valid and unchanged for the lifetime of the table. An absent
  /// key is added with an empty value.
  const std::string& getPropertyText(const std::string& key);

  /// Returns `s` without blanks, tabs, carriage returns and line feeds at both ends.
  static std::string trim(const std::string& s);

 private:
  void addLine(const std::string& line, int number);
  [[noreturn]] void failToRead();

  std::map<std::string, std::string> properties_;
  std::string cfgFileName_;
  std::vector<Line> lines_, ignoredLines_;

  static Config* config_;
};
