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

constexpr std::chrono::seconds kRetryAfter(1);
constexpr std::chrono::minutes kTellAfter(1);

/// Why nothing can be written to the file of this name, or empty.
std::string faultOf(const std::string& name) {
  return faccessat(AT_FDCWD, name.c_str(), W_OK, AT_EACCESS) == 0 ? "" : std::strerror(errno);
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
    : inner(std::move(appender)), file(std::dynamic_pointer_cast<log4cxx::FileAppender>(inner)), checked(Clock::now()) {
  setName(inner->getName());
  if (file) fault = faultOf(file->getFile());
}

void GuardedAppender::append(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool& pool) {
  try {
    if (file) checkFile(pool);
    if (!fault.empty()) throw std::runtime_error(fault);
    write(event, pool);
  } catch (const std::exception& failure) {
    ++lost;
    reason = failure.what();
    tellLoss();
  }
}

void GuardedAppender::write(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool& pool) {
  if (lost > 0) {
    const std::string text = std::to_string(lost) + " log lines are lost: " + reason;
    const auto notice = std::make_shared<LoggingEvent>(event->getLoggerName(), log4cxx::Level::getWarn(), text,
                                                       log4cxx::spi::LocationInfo::getLocationUnavailable());
    inner->doAppend(notice, pool);
    lost = 0;
  }
  inner->doAppend(event, pool);
}

void GuardedAppender::checkFile(log4cxx::helpers::Pool& pool) {
  const auto now = Clock::now();
  if (now - checked < kRetryAfter) return;
  checked = now;
  const std::string found = faultOf(file->getFile());
  if (found.empty() && fault.empty()) return;
  // Gone, or back: either way it is not the one that is open.
  fault = found;
  file->activateOptions(pool);
  fault = faultOf(file->getFile());
}

void GuardedAppender::tellLoss() {
  const auto now = Clock::now();
  if (told && now - toldAt < kTellAfter) return;
  told = true;
  toldAt = now;
  const std::string name = file ? file->getFile() : inner->getName();
  std::fprintf(stderr, "sniffer: the log %s cannot be written (%s); lines lost so far: %llu\n", name.c_str(),
               reason.c_str(), static_cast<unsigned long long>(lost));
}

void GuardedAppender::close() {
  try {
    inner->close();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "sniffer: closing the log: %s\n", failure.what());
  }
}

void guardAppenders() {
  guard(log4cxx::Logger::getRootLogger());
  for (const log4cxx::LoggerPtr& logger : log4cxx::LogManager::getCurrentLoggers()) guard(logger);
  // From here on the guards tell what goes wrong, and not a line of it for each line of the log.
  log4cxx::helpers::LogLog::setQuietMode(true);
}

}  // namespace voip
