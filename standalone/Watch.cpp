#include "Watch.h"

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <optional>

#include "LiveLine.h"

using namespace voip;

namespace {

/// A signal that was ignored at the start stays so: nohup(1) ignores SIGHUP.
bool isIgnored(int number) {
  struct sigaction present = {};
  return sigaction(number, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
}

using Clock = std::chrono::steady_clock;
constexpr timespec kPollInterval{0, 50'000'000};

/// A time that is due at every interval, and never when the interval is 0.
class Schedule {
 public:
  explicit Schedule(std::chrono::seconds interval) : interval_(interval), due_(Clock::now() + interval) {}

  bool isDue() {
    if (interval_.count() == 0 || Clock::now() < due_) return false;
    due_ += interval_;
    return true;
  }

 private:
  const std::chrono::seconds interval_;
  Clock::time_point due_;
};

}  // namespace

Watch::Watch() {
  // All later threads inherit the blocked signals, so only the thread that awaits them receives them.
  sigemptyset(&signals_);
  sigaddset(&signals_, SIGINT);
  sigaddset(&signals_, SIGTERM);
  sigaddset(&signals_, SIGUSR2);
  if (!isIgnored(SIGHUP)) sigaddset(&signals_, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  signal(SIGPIPE, SIG_IGN);
  // A handler without SA_RESTART: the signal interrupts the read of a capture thread.
  struct sigaction interrupt = {};
  interrupt.sa_handler = [](int) {};
  sigaction(SIGUSR1, &interrupt, nullptr);
  thread_ = std::thread([this] { run(); });
}

Watch::~Watch() {
  ended_ = true;
  if (thread_.joinable()) thread_.join();
}

int Watch::finish() {
  thread_.join();
  return status_;
}

/// A capture that has finished is a failure unless all devices were files.
bool Watch::captureFinished(Sniffer& engine) {
  if (!engine.captureFinished()) return false;
  if (!engine.replaysOnly()) {
    std::cerr << "sniffer: there is no device left to capture on" << std::endl;
    status_ = kNoDevice;
  }
  return true;
}

void Watch::run() {
  std::optional<LiveLine> live;
  std::optional<Schedule> report;
  Schedule renewal(std::chrono::seconds(1));
  while (!ended_) {
    const int received = sigtimedwait(&signals_, nullptr, &kPollInterval);
    const bool stopAsked = received == SIGINT || received == SIGTERM || received == SIGHUP;
    Sniffer* const running = engine_;
    if (running == nullptr) {
      if (stopAsked) std::_Exit(0);
      continue;
    }
    if (!report) {
      live.emplace(*running);
      report.emplace(std::chrono::seconds(running->getSettings().statisticsInterval));
    }
    if (stopAsked || captureFinished(*running)) {
      live.reset();
      running->stopSniffing();
      return;
    }
    const bool isDue = report->isDue();
    if (received == SIGUSR2 || isDue) running->logStatistics();
    if (renewal.isDue()) live->renew();
  }
}
