#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "statistics/PeriodicTask.h"

namespace voip {

/// A file that holds the latest statistics while the object lives, and the last ones afterwards. Written at once, at
/// every interval by a thread of its own, and at the end. Whoever reads the file sees a whole one: it is replaced by
/// rename(2), so its directory must be writable. What cannot be written is told once, and again when it can.
class StatisticsFile {
 public:
  /// `text` gives what the file is to hold, on any thread.
  StatisticsFile(std::string path, std::chrono::seconds interval, std::function<std::string()> text);
  ~StatisticsFile();
  StatisticsFile(const StatisticsFile&) = delete;
  StatisticsFile& operator=(const StatisticsFile&) = delete;

 private:
  void replace();
  void tell(const std::string& failure);

  const std::string path;
  const std::function<std::string()> text;
  std::string told;  ///< the failure that was told last; empty when all is well
  std::optional<PeriodicTask> renewal;
};

}  // namespace voip
