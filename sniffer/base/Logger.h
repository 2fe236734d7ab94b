#pragma once

#include <memory>
#include <sstream>
#include <string>

namespace log4cxx {
class Logger;
}

namespace voip {

/// A log4cxx logger by its name. Keeps the headers of log4cxx out of the files that only write log lines. Any thread.
class Logger {
 public:
  explicit Logger(const char* name);

  bool isDebugEnabled() const;
  bool isInfoEnabled() const;

  /// By its name in capitals: "DEBUG", "INFO", "WARN", "ERROR" or "FATAL". Another text changes nothing.
  void setLevel(const std::string& name) const;

  void debug(const std::string& line) const;
  void info(const std::string& line) const;
  void warn(const std::string& line) const;
  void error(const std::string& line) const;

  /// Joins its arguments to one line, only when the level is enabled.
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

/// The logger "SnifferClient", which all classes share. Never destroyed: threads log until the process ends.
const Logger& logger();

}  // namespace voip
