// The minimum cost of sending frames one by one: one send() per frame to a process that discards all data.
//
// Usage: road_bare TCP|UDP FRAMES
//
// Prints the processor time of the sending process in microseconds per frame. A frame has the length of a forwarded RTP
// packet with 20 ms of G.711.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

constexpr int kFrameLength = 15 + 172;

/// Returns the address in the type of the socket functions.
sockaddr* generic(sockaddr_in& address) {
  return reinterpret_cast<sockaddr*>(&address);
}

/// Reads and discards all data, then ends the process.
[[noreturn]] void discardAll(int listener, bool stream) {
  const int sd = stream ? accept(listener, nullptr, nullptr) : listener;
  static char buffer[1 << 20];
  while (recv(sd, buffer, sizeof buffer, 0) > 0) {
  }
  _exit(0);
}

/// Returns the processor time of this process.
double processorMicroseconds() {
  rusage used;
  getrusage(RUSAGE_SELF, &used);
  const auto microseconds = [](const timeval& time) {
    return 1e6 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec);
  };
  return microseconds(used.ru_utime) + microseconds(used.ru_stime);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 1;
  const bool stream = std::string(argv[1]) == "TCP";
  const long frames = std::stol(argv[2]);
  const int type = stream ? SOCK_STREAM : SOCK_DGRAM;
  const int listener = socket(AF_INET, type, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (bind(listener, generic(address), length) != 0 || (stream && listen(listener, 1) != 0)) return 1;
  getsockname(listener, generic(address), &length);
  const pid_t sink = fork();
  if (sink == 0) discardAll(listener, stream);
  close(listener);
  const int sd = socket(AF_INET, type, 0);
  if (connect(sd, generic(address), length) != 0) return 1;
  const char frame[kFrameLength] = {};
  const double start = processorMicroseconds();
  for (long i = 0; i < frames; ++i) send(sd, frame, sizeof frame, MSG_NOSIGNAL);
  std::printf("%.3f\n", (processorMicroseconds() - start) / static_cast<double>(frames));
  kill(sink, SIGKILL);
  waitpid(sink, nullptr, 0);
}
