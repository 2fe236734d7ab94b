#pragma once

#include <log4cxx/appenderskeleton.h>
#include <log4cxx/logger.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>

#include "capture/Sniffer.h"

/// One line at the bottom of a terminal that tells how things stand: frames a second in and out, what is lost and
/// waits, the recorder. It makes room for lines of the log. Does nothing when standard output is no terminal.
class LiveLine {
 public:
  explicit LiveLine(Sniffer& shown);
  ~LiveLine();
  LiveLine(const LiveLine&) = delete;
  LiveLine& operator=(const LiveLine&) = delete;

  /// Shows the figures of this moment. To be called every second.
  void renew();

 private:
  /// Takes the line away before another appender writes one of the log.
  struct Eraser final : log4cxx::AppenderSkeleton {
    void append(const log4cxx::spi::LoggingEventPtr&, log4cxx::helpers::Pool&) override { erase(); }
    void close() override {}
    bool requiresLayout() const override { return false; }

    void show(const std::string& text);
    void erase();

    std::mutex lock;
    bool isShown = false;
  };

  std::string figures();
  std::string recorder(bool connected);

  Sniffer& engine;
  const bool onTerminal;
  std::shared_ptr<Eraser> line = std::make_shared<Eraser>();
  log4cxx::LoggerPtr logger = log4cxx::Logger::getLogger("SnifferClient");
  std::uint64_t lastIn = 0;
  std::uint64_t lastOut = 0;
  std::time_t lostAt = std::time(nullptr);  ///< 0 while the recorder is connected
};
