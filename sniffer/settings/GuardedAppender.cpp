#include "settings/GuardedAppender.h"

#include <fcntl.h>
#include <log4cxx/helpers/loglog.h>
#include <log4cxx/logger.h>
#include <log4cxx/logmanager.h>
#include <log4cxx/spi/loggingevent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <utility>

namespace voip {

using log4cxx::spi::LoggingEvent;

namespace {

constexpr std::chrono::seconds kRetryInterval(1);
constexpr std::chrono::minutes kReportInterval(1);

/// Returns why the file cannot be written, empty when it can.
std::string writeError(const std::string& path) {
  return faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0 ? "" : std::strerror(errno);
}

void guard(const log4cxx::LoggerPtr& logger) {
  for (const log4cxx::AppenderPtr& appender : logger->getAllAppenders()) {
    if (std::dynamic_pointer_cast<GuardedAppender>(appender)) continue;
    logger->addAppender(std::make_shared<GuardedAppender>(appender));
    logger->removeAppender(appender);
  }
}

}  // namespace

GuardedAppender::GuardedAppender(log4cxx::AppenderPtr appender)
    : appender_(std::move(appender)),
      file_(std::dynamic_pointer_cast<log4cxx::FileAppender>(appender_)),
      lastCheck_(Clock::now()) {
  setName(appender_->getName());
  if (file_) fileError_ = writeError(file_->getFile());
}

void GuardedAppender::append(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool& pool) {
  try {
    if (file_) checkFile(pool);
    if (!fileError_.empty()) throw std::runtime_error(fileError_);
    write(event, pool);
  } catch (const std::exception& failure) {
    ++lostLines_;
    lossReason_ = failure.what();
    reportLoss();
  }
}

void GuardedAppender::write(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool& pool) {
  if (lostLines_ > 0) {
    const std::string text = std::to_string(lostLines_) + " log lines are lost: " + lossReason_;
    const auto notice = std::make_shared<LoggingEvent>(event->getLoggerName(), log4cxx::Level::getWarn(), text,
                                                       log4cxx::spi::LocationInfo::getLocationUnavailable());
    appender_->doAppend(notice, pool);
    lostLines_ = 0;
  }
  appender_->doAppend(event, pool);
}

void GuardedAppender::checkFile(log4cxx::helpers::Pool& pool) {
  const auto now = Clock::now();
  if (now - lastCheck_ < kRetryInterval) return;
  lastCheck_ = now;
  const std::string found = writeError(file_->getFile());
  if (found.empty() && fileError_.empty()) return;
  // The file was removed or created again: the open file is another one.
  fileError_ = found;
  file_->activateOptions(pool);
  fileError_ = writeError(file_->getFile());
}

void GuardedAppender::reportLoss() {
  const auto now = Clock::now();
  if (lastReport_ && now - *lastReport_ < kReportInterval) return;
  lastReport_ = now;
  const std::string name = file_ ? file_->getFile() : appender_->getName();
  std::fprintf(stderr, "sniffer: the log %s cannot be written (%s); lines lost so far: %llu\n", name.c_str(),
               lossReason_.c_str(), static_cast<unsigned long long>(lostLines_));
}

void GuardedAppender::close() {
  try {
    appender_->close();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "sniffer: closing the log: %s\n", failure.what());
  }
}

void guardAppenders() {
  guard(log4cxx::Logger::getRootLogger());
  for (const log4cxx::LoggerPtr& logger : log4cxx::LogManager::getCurrentLoggers()) guard(logger);
  // The guards report failures from now on; log4cxx would print a line for each log line.
  log4cxx::helpers::LogLog::setQuietMode(true);
}

}  // namespace voip
