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

constexpr int kWithoutEvent = 100;  // milliseconds until the end is noticed when nothing tells of it

}  // namespace

SocketWait::SocketWait() : endEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), readable(epoll_create1(EPOLL_CLOEXEC)) {
  watch(endEvent);
}

SocketWait::~SocketWait() {
  if (readable != -1) close(readable);
  if (endEvent != -1) close(endEvent);
}

void SocketWait::watch(int sd) {
  epoll_event event{};
  event.events = EPOLLIN;
  epoll_ctl(readable, EPOLL_CTL_ADD, sd, &event);
}

void SocketWait::untilReadable() {
  epoll_event event;
  const bool slept =
      !ended && (epoll_wait(readable, &event, 1, endEvent == -1 ? kWithoutEvent : -1) != -1 || errno == EINTR);
  if (slept) return;
  // At the end, and when the process had no descriptors left for this: look again soon, and let the others run.
  const timespec pause{0, ended ? 200 : 1'000'000};
  nanosleep(&pause, nullptr);
}

bool SocketWait::untilWritable(int sd, std::chrono::milliseconds longest) {
  using Clock = std::chrono::steady_clock;
  pollfd waits[] = {{sd, POLLOUT, 0}, {endEvent, POLLIN, 0}};
  const Clock::time_point end = Clock::now() + longest;
  for (auto left = longest; !ended && left.count() > 0;
       left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now())) {
    const int sleep = static_cast<int>(left.count());
    if (poll(waits, 2, endEvent == -1 ? std::min(sleep, kWithoutEvent) : sleep) > 0 && waits[0].revents != 0)
      return true;
  }
  return false;
}

void SocketWait::untilEnd(std::chrono::milliseconds longest) {
  untilWritable(-1, longest);  // poll(2) ignores this descriptor
}

void SocketWait::end() {
  ended = true;
  eventfd_write(endEvent, 1);
}

}  // namespace voip
