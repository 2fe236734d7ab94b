#pragma once

#include <log4cxx/appenderskeleton.h>
#include <log4cxx/logger.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Collects what a logger writes, from DEBUG on, for the length of a scope. An event reads
/// "LEVEL message". Any thread.
class TestLog {
 public:
  explicit TestLog(const char* name = "SnifferClient") : logger(log4cxx::Logger::getLogger(name)) {
    logger->setAdditivity(false);
    logger->setLevel(log4cxx::Level::getDebug());
    logger->addAppender(collector);
  }
  ~TestLog() { logger->removeAppender(collector); }
  TestLog(const TestLog&) = delete;
  TestLog& operator=(const TestLog&) = delete;

  void setLevel(const log4cxx::LevelPtr& level) { logger->setLevel(level); }
  log4cxx::LevelPtr level() const { return logger->getLevel(); }

  /// The events so far, which are forgotten.
  std::vector<std::string> take() {
    const std::lock_guard guard(collector->lock);
    return std::exchange(collector->events, {});
  }

  long count(const std::string& event) const {
    const std::lock_guard guard(collector->lock);
    return std::count(collector->events.begin(), collector->events.end(), event);
  }

  bool contains(const std::string& event) const { return count(event) > 0; }

 private:
  struct Collector : log4cxx::AppenderSkeleton {
    void append(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool&) override {
      const std::lock_guard guard(lock);
      events.push_back(event->getLevel()->toString() + " " + event->getMessage());
    }
    void close() override {}
    bool requiresLayout() const override { return false; }

    std::mutex lock;
    std::vector<std::string> events;
  };

  log4cxx::LoggerPtr logger;
  std::shared_ptr<Collector> collector = std::make_shared<Collector>();
};
