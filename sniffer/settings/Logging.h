#pragma once

#include <string>

namespace voip {

/// Configures log4cxx from a properties file. When the file cannot be read and log4cxx is not configured yet, log lines
/// go to standard error at INFO, after a warning. When the log cannot be written, only its lines are lost: no call of a
/// logger throws (see GuardedAppender).
void configureLogging(const std::string& fileName);

/// Writes log lines to standard error at INFO, unless log4cxx is configured already.
void logToConsole();

/// Makes log4cxx's static levels. A function that is registered with atexit() after this call can still log.
void makeLogLevels();

/// Returns the log level that the text names: "DEBUG", "INFO", "WARN", "ERROR" or "FATAL". Empty when it names none.
/// Letter case and blanks at both ends do not matter.
std::string logLevelNamed(const std::string& text);

}  // namespace voip
