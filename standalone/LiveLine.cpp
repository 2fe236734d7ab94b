#include "LiveLine.h"

#include <strings.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <utility>

using namespace voip;

namespace {

constexpr std::string_view kErase = "\r\x1b[K";

/// Writes to the terminal without a buffer. A failure does not matter.
void write(std::string_view text) {
  [[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
}

std::size_t columns() {
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

std::string timeOfDay(std::time_t time) {
  char text[16];
  tm local;
  return std::string(text, std::strftime(text, sizeof text, "%H:%M:%S", localtime_r(&time, &local)));
}

}  // namespace

LiveLine::LiveLine(Sniffer& engine) : engine_(engine), onTerminal_(isatty(STDOUT_FILENO) == 1) {
  // log4cxx calls the appenders of this logger before those of the root logger, which write the line of the log.
  if (onTerminal_) logger_->addAppender(line_);
}

LiveLine::~LiveLine() {
  if (!onTerminal_) return;
  logger_->removeAppender(line_);
  line_->erase();
}

void LiveLine::renew() {
  if (onTerminal_) line_->show(figuresText());
}

std::string LiveLine::figuresText() {
  std::uint64_t in = 0;
  std::uint64_t dropped = 0;
  for (const DeviceStatistics& device : engine_.getDeviceStatistics()) {
    in += device.received;
    dropped += device.droppedByKernel + device.droppedByInterface;
  }
  const Statistics now = engine_.getStatistics();
  const std::uint64_t out = now.sipForwarded + now.rtpForwarded + now.h323Forwarded;
  const auto rate = [](std::uint64_t& last, std::uint64_t total) {
    return std::to_string(total - std::exchange(last, total)) + "/s";
  };
  return "in " + rate(lastIn_, in) + ", out " + rate(lastOut_, out) + ", drops " + std::to_string(dropped) +
         ", queue " + std::to_string(now.queueLength) + ", listed " + std::to_string(now.rtpListLength) +
         ", recorder " + recorderText(now.recorderConnected != 0) + furtherRecordersText();
}

std::string LiveLine::furtherRecordersText() {
  const auto further = engine_.getRecorderStatistics();
  const auto connected = std::count_if(
      further.begin(), further.end(), [](const RecorderStatistics& one) { return one.figures.recorderConnected != 0; });
  if (further.empty()) return {};
  return ", further " + std::to_string(connected) + " of " + std::to_string(further.size());
}

std::string LiveLine::recorderText(bool connected) {
  if (strncasecmp(engine_.getServerProtocol(), "UDP", 3) == 0) return "over UDP";
  if (connected) {
    lostSince_ = 0;
    return "connected";
  }
  if (lostSince_ == 0) lostSince_ = std::time(nullptr);
  return "lost since " + timeOfDay(lostSince_);
}

void LiveLine::Eraser::show(const std::string& text) {
  const MutexLock lock(mutex_);
  isShown_ = true;
  write(std::string(kErase) + text.substr(0, columns() - 1));
}

void LiveLine::Eraser::erase() {
  const MutexLock lock(mutex_);
  if (std::exchange(isShown_, false)) write(kErase);
}
