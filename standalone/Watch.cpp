#include "Watch.h"

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <optional>

#include "LiveLine.h"

using namespace voip;

namespace {

using Clock = std::chrono::steady_clock;
constexpr timespec kPause{0, 50'000'000};

/// What happens again and again; never when the interval is 0.
class Periodic {
 public:
  explicit Periodic(std::chrono::seconds every) : interval(every), due(Clock::now() + every) {}

  bool isDue() {
    if (interval.count() == 0 || Clock::now() < due) return false;
    due += interval;
    return true;
  }

 private:
  const std::chrono::seconds interval;
  Clock::time_point due;
};

}  // namespace

Watch::Watch() {
  // Blocked here, and so in every thread: only the one that waits for them takes them.
  sigemptyset(&awaited);
  sigaddset(&awaited, SIGINT);
  sigaddset(&awaited, SIGTERM);
  sigaddset(&awaited, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &awaited, nullptr);
  signal(SIGPIPE, SIG_IGN);
  // Does nothing: being delivered, without SA_RESTART, is enough to interrupt a capture thread's read.
  struct sigaction interrupt = {};
  interrupt.sa_handler = [](int) {};
  sigaction(SIGUSR1, &interrupt, nullptr);
  thread = std::thread([this] { run(); });
}

Watch::~Watch() {
  given = true;
  if (thread.joinable()) thread.join();
}

int Watch::finish() {
  thread.join();
  return status;
}

bool Watch::nothingLeft(Sniffer& running) {
  if (!running.captureFinished()) return false;
  if (!running.replaysOnly()) {
    std::cerr << "sniffer: there is no device left to capture on" << std::endl;
    status = kNoDevice;
  }
  return true;
}

void Watch::run() {
  std::optional<LiveLine> live;
  std::optional<Periodic> report;
  Periodic renewal(std::chrono::seconds(1));
  while (!given) {
    const int received = sigtimedwait(&awaited, nullptr, &kPause);
    const bool asked = received == SIGINT || received == SIGTERM;
    Sniffer* const running = engine;
    if (running == nullptr) {
      if (asked) std::_Exit(0);
      continue;
    }
    if (!report) {
      live.emplace(*running);
      report.emplace(std::chrono::seconds(running->getSettings().statisticsInterval));
    }
    if (asked || nothingLeft(*running)) {
      live.reset();
      running->stopSniffing();
      return;
    }
    const bool isDue = report->isDue();
    if (received == SIGUSR2 || isDue) running->logStatistics();
    if (renewal.isDue()) live->renew();
  }
}
