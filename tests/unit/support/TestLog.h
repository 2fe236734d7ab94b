#pragma once

#include <log4cxx/appenderskeleton.h>
#include <log4cxx/logger.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/Mutex.h"

/// Collects the events of a logger, from DEBUG on, for the length of a scope. An event is "LEVEL message". Any thread.
class TestLog {
 public:
  explicit TestLog(const char* name = "SnifferClient") : logger_(log4cxx::Logger::getLogger(name)) {
    logger_->setAdditivity(false);
    createLevels();
    logger_->setLevel(log4cxx::Level::getDebug());
    logger_->addAppender(collector_);
  }
  ~TestLog() { logger_->removeAppender(collector_); }
  TestLog(const TestLog&) = delete;
  TestLog& operator=(const TestLog&) = delete;

  void setLevel(const log4cxx::LevelPtr& level) { logger_->setLevel(level); }
  log4cxx::LevelPtr getLevel() const { return logger_->getLevel(); }

  /// Removes and returns the events so far.
  std::vector<std::string> take() { return collector_->take(); }

  long count(const std::string& event) const { return collector_->count(event); }

  bool contains(const std::string& event) const { return count(event) > 0; }

 private:
  /// log4cxx creates each level at its first use. ThreadSanitizer does not see the lock of that in a library that is
  /// not instrumented, and reports a race when two threads are the first users.
  static void createLevels() {
    log4cxx::Level::getDebug();
    log4cxx::Level::getInfo();
    log4cxx::Level::getWarn();
    log4cxx::Level::getError();
    log4cxx::Level::getFatal();
  }

  class Collector : public log4cxx::AppenderSkeleton {
   public:
    void append(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool&) override {
      const voip::MutexLock lock(mutex_);
      events_.push_back(event->getLevel()->toString() + " " + event->getMessage());
    }
    void close() override {}
    bool requiresLayout() const override { return false; }

    std::vector<std::string> take() {
      const voip::MutexLock lock(mutex_);
      return std::exchange(events_, {});
    }

    long count(const std::string& event) {
      const voip::MutexLock lock(mutex_);
      return std::count(events_.begin(), events_.end(), event);
    }

   private:
    voip::Mutex mutex_;
    std::vector<std::string> events_ GUARDED_BY(mutex_);
  };

  log4cxx::LoggerPtr logger_;
  std::shared_ptr<Collector> collector_ = std::make_shared<Collector>();
};
