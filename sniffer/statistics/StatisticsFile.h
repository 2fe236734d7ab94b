#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "statistics/PeriodicTask.h"

namespace voip {

/// A file with the latest statistics. The constructor writes it, a thread renews it at every interval, the destructor
/// writes it for the last time. Any user may read the file, regardless of the umask.
///
/// rename(2) replaces the file, so a reader never sees a part of it and its directory must be writable. Only a regular
/// file is replaced, or a symbolic link that leads to one or to nothing. A failure is logged once, and so is the first
/// success after it.
class StatisticsFile {
 public:
  /// `text` returns the content of the file. Any thread.
  StatisticsFile(std::string path, std::chrono::seconds interval, std::function<std::string()> text);
  ~StatisticsFile();
  StatisticsFile(const StatisticsFile&) = delete;
  StatisticsFile& operator=(const StatisticsFile&) = delete;

  /// Tries whether the file at `path` can be replaced, with an empty file beside it, which it removes. Returns the
  /// reason why not, or an empty text. Any thread.
  static std::string tryReplacing(const std::string& path);

 private:
  void replace();
  int writeAndRename();
  void report(const std::string& failure);

  const std::string path_;
  const std::function<std::string()> text_;
  std::string reportedFailure_;  ///< empty when the file could be written
  std::optional<PeriodicTask> renewal_;
};

}  // namespace voip
