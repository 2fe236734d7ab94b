// A recorder that counts RTP frames.
//
// Usage: road_recorder TCP|UDP FRAMES
//
// Listens on a port of the loopback device, which it prints. Asks for the RTP of 10.0.0.2:5000 after the first
// connection or datagram, and prints "ready" after the heartbeat reply that confirms it. Ends after FRAMES RTP frames,
// or after three seconds without data. Prints the number of RTP frames, and how many of them did not have the next
// number of their stream.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int kLargeRead = 10000;        // bytes
constexpr int kHeader = 15;              // bytes
constexpr int kNumberAt = kHeader + 12;  // index of the number, after the RTP header
constexpr int kSourcePortAt = 13;
constexpr int kRtp = 2;
constexpr int kHeartbeat = 3;
constexpr int kSilenceMs = 3000;
constexpr unsigned char kCommands[] = {1, 10, 0, 0, 2, 0x13, 0x88,  // add 10.0.0.2:5000
                                       3, 0,  0, 0, 0, 0,    0};    // heartbeat

/// Counts the RTP frames and the gaps in their numbers.
class Count {
 public:
  explicit Count(std::uint64_t expected) : expected_(expected) {}

  /// Counts a frame. Returns true for the last of the expected RTP frames.
  bool take(const unsigned char* frame) {
    if (frame[2] == kHeartbeat) announce("ready");
    if (frame[2] != kRtp) return false;
    std::uint32_t number;
    std::uint16_t port;
    std::memcpy(&number, frame + kNumberAt, sizeof number);
    std::memcpy(&port, frame + kSourcePortAt, sizeof port);
    if (std::exchange(next_[ntohs(port)], ntohl(number) + 1) != ntohl(number)) ++gaps_;
    return ++frames_ == expected_;
  }

  static void announce(const char* text) {
    std::puts(text);
    std::fflush(stdout);
  }

  void print() const {
    std::printf("%llu %llu\n", static_cast<unsigned long long>(frames_), static_cast<unsigned long long>(gaps_));
  }

 private:
  const std::uint64_t expected_;
  std::uint64_t frames_ = 0;
  std::uint64_t gaps_ = 0;
  std::vector<std::uint32_t> next_ = std::vector<std::uint32_t>(65536);  ///< by source port
};

int listenOnLoopback(int type) {
  const int sd = socket(AF_INET, type, 0);
  const int size = 32 << 20;
  // In a test that stops the recorder, the buffer keeps the system's size: a larger one would hide the stop.
  if (std::getenv("ROAD_PAUSE") == nullptr) setsockopt(sd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (bind(sd, reinterpret_cast<const sockaddr*>(&address), length) != 0) return -1;
  if (type == SOCK_STREAM) listen(sd, 1);
  getsockname(sd, reinterpret_cast<sockaddr*>(&address), &length);
  Count::announce(std::to_string(ntohs(address.sin_port)).c_str());
  return sd;
}

/// Waits for data. Waits a little longer unless the last read was large, like the interrupt moderation of a network
/// card: the recorder represents another machine and must not take the processor from the sniffer for each frame.
bool readable(int sd, bool wasLarge) {
  pollfd one{sd, POLLIN, 0};
  const bool isReadable = poll(&one, 1, kSilenceMs) > 0;
  const timespec moderation{0, 200'000};
  if (!wasLarge) nanosleep(&moderation, nullptr);
  return isReadable;
}

void countStream(int listener, Count& count) {
  const int sd = accept(listener, nullptr, nullptr);
  send(sd, kCommands, sizeof kCommands, MSG_NOSIGNAL);
  std::vector<unsigned char> buffer(1 << 20);
  std::size_t filled = 0;
  ssize_t n = 0;
  while (readable(sd, n > kLargeRead)) {
    n = recv(sd, buffer.data() + filled, buffer.size() - filled, 0);
    if (n <= 0) return;
    filled += n;
    std::size_t at = 0;
    for (;;) {
      const std::size_t length = filled - at < kHeader ? SIZE_MAX : buffer[at] << 8 | buffer[at + 1];
      if (length > filled - at) break;
      if (count.take(&buffer[at])) return;
      at += length;
    }
    std::memmove(buffer.data(), &buffer[at], filled - at);
    filled -= at;
  }
}

void countDatagrams(int sd, Count& count) {
  unsigned char buffer[65536];
  sockaddr_in from{};
  socklen_t length = sizeof from;
  recvfrom(sd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &length);
  for (const unsigned char* one : {kCommands, kCommands + 7}) {
    sendto(sd, one, 7, 0, reinterpret_cast<const sockaddr*>(&from), length);
  }
  while (readable(sd, false)) {
    while (recv(sd, buffer, sizeof buffer, MSG_DONTWAIT) >= kHeader) {
      if (count.take(buffer)) return;
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 1;
  const bool stream = std::string(argv[1]) == "TCP";
  Count count(std::stoull(argv[2]));
  const int sd = listenOnLoopback(stream ? SOCK_STREAM : SOCK_DGRAM);
  if (sd == -1) return 1;
  stream ? countStream(sd, count) : countDatagrams(sd, count);
  count.print();
}
