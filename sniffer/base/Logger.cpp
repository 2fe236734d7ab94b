#include "base/Logger.h"

#include <log4cxx/logger.h>

#include <utility>

namespace voip {

namespace {

thread_local const std::string* prefix = nullptr;

std::string prefixed(const std::string& line) {
  return prefix != nullptr ? *prefix + line : line;
}

}  // namespace

LogPrefix::LogPrefix(const std::string& text) : outer_(std::exchange(prefix, &text)) {}

LogPrefix::~LogPrefix() {
  prefix = outer_;
}

Logger::Logger(const char* name) : logger_(log4cxx::Logger::getLogger(name)) {}

bool Logger::isDebugEnabled() const {
  return logger_->isDebugEnabled();
}

bool Logger::isInfoEnabled() const {
  return logger_->isInfoEnabled();
}

void Logger::setLevel(const std::string& name) const {
  for (const log4cxx::LevelPtr& level :
       {log4cxx::Level::getDebug(), log4cxx::Level::getInfo(), log4cxx::Level::getWarn(), log4cxx::Level::getError(),
        log4cxx::Level::getFatal()}) {
    if (name == level->toString()) logger_->setLevel(level);
  }
}

void Logger::debug(const std::string& line) const {
  logger_->debug(prefixed(line));
}

void Logger::info(const std::string& line) const {
  logger_->info(prefixed(line));
}

void Logger::warn(const std::string& line) const {
  logger_->warn(prefixed(line));
}

void Logger::error(const std::string& line) const {
  logger_->error(prefixed(line));
}

const Logger& logger() {
  static const Logger& shared = *new Logger("SnifferClient");
  return shared;
}

}  // namespace voip
