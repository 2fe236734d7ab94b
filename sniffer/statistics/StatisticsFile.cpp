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

std::string reasonOf(int error) {
  return error == 0 ? "" : std::strerror(error);
}

/// Returns why the file must not be replaced, or an empty text: a device or a pipe would be lost to other programs.
std::string findObstacle(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode)) return {};
  return S_ISDIR(status.st_mode) ? reasonOf(EISDIR) : "Not a regular file";
}

/// Returns -1 on failure.
int create(const std::string& path) {
  return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kReadableByAll);
}

/// Writes a new file that any user may read. Returns 0 or the number of the error.
int writeWhole(const std::string& path, const std::string& content) {
  unlink(path.c_str());  // left by a program that was killed
  const int file = create(path);
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

std::string StatisticsFile::tryReplacing(const std::string& path) {
  if (std::string obstacle = findObstacle(path); !obstacle.empty()) return obstacle;
  const std::string trial = path + ".try";  // as long as the name that replace() uses
  const int file = create(trial);
  if (file == -1) return reasonOf(errno == EEXIST ? 0 : errno);  // another trial runs
  close(file);
  return reasonOf(unlink(trial.c_str()) == 0 ? 0 : errno);
}

void StatisticsFile::replace() {
  try {
    const std::string obstacle = findObstacle(path_);
    report(obstacle.empty() ? reasonOf(writeAndRename()) : obstacle);
  } catch (const std::exception& failure) {
    report(failure.what());
  }
}

/// Returns 0 or the number of the error.
int StatisticsFile::writeAndRename() {
  const std::string fresh = path_ + ".new";
  int error = writeWhole(fresh, text_());
  if (error == 0 && std::rename(fresh.c_str(), path_.c_str()) != 0) error = errno;
  if (error != 0) unlink(fresh.c_str());
  return error;
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
