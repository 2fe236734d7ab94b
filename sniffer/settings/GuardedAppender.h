#pragma once

#include <log4cxx/appenderskeleton.h>
#include <log4cxx/fileappender.h>

#include <chrono>
#include <cstdint>
#include <string>

namespace voip {

/// Stands in front of an appender so that whatever befalls it costs log lines and nothing else. log4cxx lets an
/// appender's exceptions out of every call of a logger, on whatever thread; and a file that could not be opened, or is
/// no longer there, swallows lines without a word.
///
/// Lost lines are told on standard error, at most once a minute, and in the log itself when it is written again. A file
/// that is gone or could not be opened is opened again as soon as that can be done, tried once a second at most.
class GuardedAppender final : public log4cxx::AppenderSkeleton {
 public:
  explicit GuardedAppender(log4cxx::AppenderPtr appender);

  void append(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool& pool) override;
  void close() override;
  bool requiresLayout() const override { return false; }

 private:
  using Clock = std::chrono::steady_clock;

  void write(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool& pool);
  void checkFile(log4cxx::helpers::Pool& pool);
  void tellLoss();

  const log4cxx::AppenderPtr inner;
  const log4cxx::FileAppenderPtr file;  ///< `inner`, when that writes to a file
  Clock::time_point checked;            ///< the file
  std::string fault;                    ///< why its lines are lost; empty when it is open
  std::uint64_t lost = 0;               ///< lines since it was written last
  std::string reason;                   ///< why they were lost
  bool told = false;
  Clock::time_point toldAt;
};

/// Puts a guard in front of every appender that the loggers have.
void guardAppenders();

}  // namespace voip
