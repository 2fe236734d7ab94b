#include "recorder/SocketWait.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace voip {

namespace {

constexpr int kPollInterval = 100;  // milliseconds between looks at `ended_` without an event descriptor

}  // namespace

SocketWait::SocketWait() : endEvent_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), readable_(epoll_create1(EPOLL_CLOEXEC)) {
  watch(endEvent_);
}

SocketWait::~SocketWait() {
  if (readable_ != -1) close(readable_);
  if (endEvent_ != -1) close(endEvent_);
}

void SocketWait::watch(int sd) {  // NOLINT(readability-make-member-function-const): it changes the set of sockets
  epoll_event event{};
  event.events = EPOLLIN;
  epoll_ctl(readable_, EPOLL_CTL_ADD, sd, &event);
}

void SocketWait::untilReadable() {
  epoll_event event;
  const bool slept =
      !ended_ && (epoll_wait(readable_, &event, 1, endEvent_ == -1 ? kPollInterval : -1) != -1 || errno == EINTR);
  if (slept) return;
  // After the end, or without an epoll descriptor: a short pause instead of a busy loop.
  const timespec pause{0, ended_ ? 200 : 1'000'000};
  nanosleep(&pause, nullptr);
}

bool SocketWait::untilWritable(int sd, std::chrono::milliseconds longest) {
  using Clock = std::chrono::steady_clock;
  pollfd waits[] = {{sd, POLLOUT, 0}, {endEvent_, POLLIN, 0}};
  const Clock::time_point end = Clock::now() + longest;
  for (auto left = longest; !ended_ && left.count() > 0;
       left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now())) {
    const int sleep = static_cast<int>(left.count());
    if (poll(waits, 2, endEvent_ == -1 ? std::min(sleep, kPollInterval) : sleep) > 0 && waits[0].revents != 0)
      return true;
  }
  return false;
}

void SocketWait::untilEnd(std::chrono::milliseconds longest) {
  untilWritable(-1, longest);  // poll(2) ignores this descriptor
}

void SocketWait::end() {
  ended_ = true;
  eventfd_write(endEvent_, 1);
}

}  // namespace voip
