#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

/// A file that holds the latest statistics while the object lives, and the last ones afterwards. Written by a thread of
/// its own: at once, at every interval, and at the end. Whoever reads the file sees a whole one: it is replaced by
/// rename(2), so its directory must be writable. What cannot be written is told once, and again when it can.
class StatisticsFile {
 public:
  /// `text` gives what the file is to hold, on the object's thread.
  StatisticsFile(std::string path, std::chrono::seconds interval, std::function<std::string()> text);
  ~StatisticsFile();
  StatisticsFile(const StatisticsFile&) = delete;
  StatisticsFile& operator=(const StatisticsFile&) = delete;

 private:
  void run();
  void replace();
  void tell(const std::string& failure);

  const std::string path;
  const std::chrono::seconds interval;
  const std::function<std::string()> text;
  std::string told;  ///< the failure that was told last; empty when all is well

  std::mutex lock;
  std::condition_variable changed;
  bool ended = false;
  std::thread thread;
};
