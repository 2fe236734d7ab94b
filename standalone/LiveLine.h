#pragma once

#include <log4cxx/appenderskeleton.h>
#include <log4cxx/logger.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

#include "base/Mutex.h"
#include "capture/Sniffer.h"

/// A line at the bottom of a terminal with the current figures: frames per second in and out, drops, queue, recorder.
/// The line is erased before a line of the log appears. Does nothing when standard output is no terminal.
class LiveLine {
 public:
  explicit LiveLine(Sniffer& engine);
  ~LiveLine();
  LiveLine(const LiveLine&) = delete;
  LiveLine& operator=(const LiveLine&) = delete;

  /// Shows the current figures. Call it every second.
  void renew();

 private:
  /// Erases the line before another appender writes a line of the log.
  class Eraser final : public log4cxx::AppenderSkeleton {
   public:
    void append(const log4cxx::spi::LoggingEventPtr&, log4cxx::helpers::Pool&) override { erase(); }
    void close() override {}
    bool requiresLayout() const override { return false; }

    void show(const std::string& text);
    void erase();

   private:
    voip::Mutex mutex_;
    bool isShown_ GUARDED_BY(mutex_) = false;
  };

  std::string figuresText();
  std::string furtherRecordersText();
  std::string recorderText(bool connected);

  Sniffer& engine_;
  const bool onTerminal_;
  std::shared_ptr<Eraser> line_ = std::make_shared<Eraser>();
  log4cxx::LoggerPtr logger_ = log4cxx::Logger::getLogger("SnifferClient");
  std::uint64_t lastIn_ = 0;
  std::uint64_t lastOut_ = 0;
  std::time_t lostSince_ = std::time(nullptr);  ///< 0 while the recorder is connected
};
