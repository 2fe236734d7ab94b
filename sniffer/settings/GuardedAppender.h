#pragma once

#include <log4cxx/appenderskeleton.h>
#include <log4cxx/fileappender.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace voip {

/// Wraps an appender so that its failure only loses log lines. log4cxx passes the exceptions of an appender on to the
/// thread that logs, and discards lines silently when a log file could not be opened or has been removed.
///
/// Lost lines are reported on standard error, at most once a minute, and in the log when it can be written again. A
/// file that is missing or could not be opened is opened again, at most one attempt a second.
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
  void reportLoss();

  const log4cxx::AppenderPtr appender_;
  const log4cxx::FileAppenderPtr file_;  ///< `appender_` if it writes to a file, else null
  Clock::time_point lastCheck_;          ///< of the file
  std::string fileError_;                ///< why the file cannot be written; empty when it can
  std::uint64_t lostLines_ = 0;          ///< since the last line that was written
  std::string lossReason_;
  std::optional<Clock::time_point> lastReport_;  ///< of a loss, on standard error
};

/// Wraps every appender of every logger in a guard.
void guardAppenders();

}  // namespace voip
