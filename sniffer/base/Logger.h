#pragma once

#include <memory>
#include <sstream>
#include <string>

namespace log4cxx {
class Logger;
}

namespace voip {

/// A log4cxx logger. Keeps the headers of log4cxx out of the files that only write log lines. Any thread.
class Logger {
 public:
  /// `name` is the logger's name in log4cxx. Loggers of one name share their level and appenders.
  explicit Logger(const char* name);

  bool isDebugEnabled() const;
  bool isInfoEnabled() const;

  /// Sets the level by its name: "DEBUG", "INFO", "WARN", "ERROR" or "FATAL". Any other text changes nothing.
  void setLevel(const std::string& name) const;

  /// Each writes one log line, if its level is enabled.
  void debug(const std::string& line) const;
  void info(const std::string& line) const;
  void warn(const std::string& line) const;
  void error(const std::string& line) const;

  /// Joins its arguments to one line. Builds the line only when DEBUG is enabled.
  template <typename First, typename... Others>
  void debug(const First& first, const Others&... others) const {
    if (!isDebugEnabled()) return;
    std::ostringstream line;
    ((line << first) << ... << others);
    debug(line.str());
  }

 private:
  std::shared_ptr<log4cxx::Logger> logger_;
};

/// Puts a text before each log line that this thread writes during a scope, such as the name of the recorder that the
/// thread works for. The caller owns the text.
class LogPrefix {
 public:
  explicit LogPrefix(const std::string& text);
  ~LogPrefix();
  LogPrefix(const LogPrefix&) = delete;
  LogPrefix& operator=(const LogPrefix&) = delete;

 private:
  const std::string* const outer_;
};

/// Returns the logger "SnifferClient", which all classes share. It is never destroyed: threads log until the process
/// ends.
const Logger& logger();

}  // namespace voip
