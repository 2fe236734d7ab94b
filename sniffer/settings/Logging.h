#pragma once

#include <string>

namespace voip {

/// Configures log4cxx from a properties file. When the file cannot be read, and nothing else has configured log4cxx
/// before, messages go to standard error at INFO, the first of them a warning that says so. A log that cannot be
/// written costs its lines and nothing else: no call of a logger throws (see GuardedAppender).
void configureLogging(const std::string& fileName);

/// Messages go to standard error at INFO, unless log4cxx has been configured before.
void logToConsole();

/// Makes log4cxx's static levels. What makes them before it registers a function with atexit() can log in that function.
void makeLogLevels();

/// The level that the text names in any case, blanks around it aside: "DEBUG", "INFO", "WARN", "ERROR" or "FATAL".
/// Empty when it is none of them.
std::string logLevelNamed(const std::string& text);

}  // namespace voip
