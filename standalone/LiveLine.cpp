#include "LiveLine.h"

#include <strings.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <string_view>
#include <utility>

using namespace voip;

namespace {

constexpr std::string_view kErase = "\r\x1b[K";

/// Straight to the terminal: what cannot be written there need not be.
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

LiveLine::LiveLine(Sniffer& shown) : engine(shown), onTerminal(isatty(STDOUT_FILENO) == 1) {
  // An appender of the program's own logger comes before those of the root, which write.
  if (onTerminal) logger->addAppender(line);
}

LiveLine::~LiveLine() {
  if (!onTerminal) return;
  logger->removeAppender(line);
  line->erase();
}

void LiveLine::renew() {
  if (onTerminal) line->show(figures());
}

std::string LiveLine::figures() {
  std::uint64_t in = 0;
  std::uint64_t dropped = 0;
  for (const DeviceStatistics& device : engine.getDeviceStatistics()) {
    in += device.received;
    dropped += device.droppedByKernel + device.droppedByInterface;
  }
  const Statistics& now = engine.getStatistics();
  const std::uint64_t out = now.sipForwarded + now.rtpForwarded + now.h323Forwarded;
  const auto rate = [](std::uint64_t& last, std::uint64_t total) {
    return std::to_string(total - std::exchange(last, total)) + "/s";
  };
  return "in " + rate(lastIn, in) + ", out " + rate(lastOut, out) + ", drops " + std::to_string(dropped) + ", queue " +
         std::to_string(now.queueLength) + ", listed " + std::to_string(now.rtpListLength) + ", recorder " +
         recorder(now.recorderConnected != 0);
}

std::string LiveLine::recorder(bool connected) {
  if (strncasecmp(engine.getServerProtocol(), "UDP", 3) == 0) return "over UDP";
  if (connected) {
    lostAt = 0;
    return "connected";
  }
  if (lostAt == 0) lostAt = std::time(nullptr);
  return "lost since " + timeOfDay(lostAt);
}

void LiveLine::Eraser::show(const std::string& text) {
  const std::lock_guard guard(lock);
  isShown = true;
  write(std::string(kErase) + text.substr(0, columns() - 1));
}

void LiveLine::Eraser::erase() {
  const std::lock_guard guard(lock);
  if (std::exchange(isShown, false)) write(kErase);
}
