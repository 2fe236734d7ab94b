#include "settings/Logging.h"

#include <log4cxx/consoleappender.h>
#include <log4cxx/helpers/loglog.h>
#include <log4cxx/logger.h>
#include <log4cxx/patternlayout.h>
#include <log4cxx/propertyconfigurator.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <memory>

#include "base/Logger.h"
#include "settings/Config.h"
#include "settings/GuardedAppender.h"

namespace voip {

namespace {

void configureFrom(const std::string& fileName) {
  try {
    log4cxx::helpers::LogLog::setQuietMode(false);
    log4cxx::PropertyConfigurator::configure(log4cxx::File(fileName));
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "sniffer: the logging configuration %s: %s\n", fileName.c_str(), failure.what());
  }
  guardAppenders();
}

}  // namespace

void configureLogging(const std::string& fileName) {
  if (access(fileName.c_str(), R_OK) == 0) {
    configureFrom(fileName);
    return;
  }
  logToConsole();
  logger().warn("Can't read the logging configuration " + fileName + ", logging to standard error");
}

void logToConsole() {
  const log4cxx::LoggerPtr root = log4cxx::Logger::getRootLogger();
  if (!root->getAllAppenders().empty()) return;
  const auto layout = std::make_shared<log4cxx::PatternLayout>(LOG4CXX_STR("%d %-5p %m%n"));
  root->addAppender(std::make_shared<log4cxx::ConsoleAppender>(layout, log4cxx::ConsoleAppender::getSystemErr()));
  root->setLevel(log4cxx::Level::getInfo());
}

void makeLogLevels() {
  for (const int level : {log4cxx::Level::DEBUG_INT, log4cxx::Level::INFO_INT, log4cxx::Level::WARN_INT,
                          log4cxx::Level::ERROR_INT, log4cxx::Level::FATAL_INT}) {
    log4cxx::Level::toLevel(level);
  }
}

std::string logLevelNamed(const std::string& text) {
  std::string level = Config::trim(text);
  std::transform(level.begin(), level.end(), level.begin(), [](unsigned char c) { return std::toupper(c); });
  for (const char* known : {"DEBUG", "INFO", "WARN", "ERROR", "FATAL"}) {
    if (level == known) return level;
  }
  return {};
}

}  // namespace voip
