#include "statistics/StatisticsFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "base/Logger.h"

namespace voip {

namespace {

constexpr mode_t kReadableByAll = 0644;

/// Writes a file that any user may read. Returns 0 or the number of the error.
int writeWhole(const std::string& path, const std::string& content) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, kReadableByAll);
  if (file == -1) return errno;
  fchmod(file, kReadableByAll);  // the umask may have cleared bits; a failure is no reason to lose the content
  int error = 0;
  for (std::size_t done = 0; done < content.size() && error == 0;) {
    const ssize_t written = write(file, content.data() + done, content.size() - done);
    if (written >= 0) {
      done += static_cast<std::size_t>(written);
    } else if (errno != EINTR) {
      error = errno;
    }
  }
  if (close(file) != 0 && error == 0) error = errno;
  return error;
}

}  // namespace

StatisticsFile::StatisticsFile(std::string path, std::chrono::seconds interval, std::function<std::string()> text)
    : path_(std::move(path)), text_(std::move(text)) {
  replace();
  renewal_.emplace(interval, [this] { replace(); });
}

StatisticsFile::~StatisticsFile() {
  renewal_.reset();
  replace();
}

void StatisticsFile::replace() {
  const std::string fresh = path_ + ".new";
  try {
    int error = writeWhole(fresh, text_());
    if (error == 0 && std::rename(fresh.c_str(), path_.c_str()) != 0) error = errno;
    if (error != 0) std::remove(fresh.c_str());
    report(error == 0 ? "" : std::strerror(error));
  } catch (const std::exception& failure) {
    report(failure.what());
  }
}

void StatisticsFile::report(const std::string& failure) {
  if (failure == std::exchange(reportedFailure_, failure)) return;
  if (failure.empty()) {
    logger().info("The statistics file " + path_ + " is written again");
  } else {
    logger().warn("Can't write the statistics file " + path_ + ": " + failure);
  }
}

}  // namespace voip
