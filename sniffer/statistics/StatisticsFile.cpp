#include "statistics/StatisticsFile.h"

#include "base/Logger.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

namespace voip {

namespace {

/// Everybody may read it: it is for another program. 0, or the error's number.
int writeWhole(const std::string& name, const std::string& content) {
  const int file = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (file == -1) return errno;
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

StatisticsFile::StatisticsFile(std::string name, std::chrono::seconds interval, std::function<std::string()> content)
    : path(std::move(name)), text(std::move(content)) {
  replace();
  renewal.emplace(interval, [this] { replace(); });
}

StatisticsFile::~StatisticsFile() {
  renewal.reset();
  replace();
}

void StatisticsFile::replace() {
  const std::string fresh = path + ".new";
  try {
    int error = writeWhole(fresh, text());
    if (error == 0 && std::rename(fresh.c_str(), path.c_str()) != 0) error = errno;
    if (error != 0) std::remove(fresh.c_str());
    tell(error == 0 ? "" : std::strerror(error));
  } catch (const std::exception& failure) {
    tell(failure.what());
  }
}

void StatisticsFile::tell(const std::string& failure) {
  if (failure == std::exchange(told, failure)) return;
  if (failure.empty()) {
    logger().info("The statistics file " + path + " is written again");
  } else {
    logger().warn("Can't write the statistics file " + path + ": " + failure);
  }
}

}  // namespace voip
