// Sends RTP frames on an Ethernet device at a steady rate.
//
// Usage: road_sender DEVICE FRAMES_PER_SECOND SECONDS
//        road_sender DEVICE opener
//
// The frames belong to a G.711 stream to 10.0.0.2:5000. The four bytes after the RTP header contain their number, in
// network byte order. Sends a thousand bursts a second. Prints the number of frames and the seconds they took. The
// second form sends one SIP request, whose frame makes a sniffer connect to its recorder.

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kRtpHeader = 12;  // bytes, as below
constexpr int kPayload = 172;
constexpr int kHeaders = 14 + 20 + 8;
constexpr int kBurstsPerSecond = 1000;
using Frame = std::array<unsigned char, kHeaders + kPayload>;

/// Returns a frame with a payload that begins with `payload`. `ports` are source and destination port in network byte
/// order.
Frame udpFrame(std::array<unsigned char, 4> ports, std::string_view payload) {
  constexpr unsigned char start[kHeaders - 8] = {
      2,    0, 0, 0, 0, 2, 2, 0, 0,  0,  0, 1, 8,  0,                     // Ethernet
      0x45, 0, 0, 0, 0, 0, 0, 0, 64, 17, 0, 0, 10, 0, 0, 1, 10, 0, 0, 2,  // IPv4 from 10.0.0.1 to 10.0.0.2
  };
  Frame frame{};
  std::memcpy(frame.data(), start, sizeof start);
  std::memcpy(&frame[34], ports.data(), ports.size());
  std::memcpy(&frame[kHeaders], payload.data(), payload.size());
  const std::uint16_t ipLength = htons(20 + 8 + kPayload);
  const std::uint16_t udpLength = htons(8 + kPayload);
  std::memcpy(&frame[16], &ipLength, 2);
  std::memcpy(&frame[38], &udpLength, 2);
  return frame;
}

Frame rtpFrame() {
  return udpFrame({0x0F, 0xA0, 0x13, 0x88}, "\x80\x08");  // from port 4000 to port 5000; PCMA
}

Frame sipFrame() {
  return udpFrame({0x13, 0xC4, 0x13, 0xC4}, "OPTIONS sip:bob@10.0.0.2 SIP/2.0\r\n\r\n");
}

int openDevice(const char* name) {
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_ifindex = static_cast<int>(if_nametoindex(name));
  const int sd = socket(AF_PACKET, SOCK_RAW, 0);
  const int on = 1;
  setsockopt(sd, SOL_PACKET, PACKET_QDISC_BYPASS, &on, sizeof on);
  if (sd == -1 || bind(sd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    std::perror(name);
    std::exit(1);
  }
  return sd;
}

/// The frames of one burst, and the messages of the system call that sends them.
class Burst {
 public:
  explicit Burst(std::size_t size) : frames_(size, rtpFrame()), parts_(size), messages_(size) {
    for (std::size_t i = 0; i < size; ++i) {
      parts_[i] = {frames_[i].data(), frames_[i].size()};
      messages_[i].msg_hdr.msg_iov = &parts_[i];
      messages_[i].msg_hdr.msg_iovlen = 1;
    }
  }

  /// Numbers the frames and sends them.
  void send(int sd, std::uint32_t firstNumber) {
    for (Frame& frame : frames_) {
      const std::uint32_t number = htonl(firstNumber++);
      std::memcpy(&frame[kHeaders + kRtpHeader], &number, sizeof number);
    }
    for (std::size_t sent = 0; sent < messages_.size();) {
      const int n = sendmmsg(sd, &messages_[sent], static_cast<unsigned>(messages_.size() - sent), 0);
      if (n > 0) sent += n;  // a full queue: tries again
    }
  }

 private:
  std::vector<Frame> frames_;
  std::vector<iovec> parts_;
  std::vector<mmsghdr> messages_;
};

/// Returns the seconds since `from`.
double secondsSince(const timespec& from) {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec - from.tv_sec) + static_cast<double>(now.tv_nsec - from.tv_nsec) / 1e9;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3) {
    const Frame opener = sipFrame();
    return send(openDevice(argv[1]), opener.data(), opener.size(), 0) > 0 ? 0 : 1;
  }
  if (argc != 4) return 1;
  const int perBurst = std::stoi(argv[2]) / kBurstsPerSecond;
  const int bursts = std::stoi(argv[3]) * kBurstsPerSecond;
  const int sd = openDevice(argv[1]);
  Burst burst(perBurst);
  timespec start;
  clock_gettime(CLOCK_MONOTONIC, &start);
  timespec due = start;
  for (int i = 0; i < bursts; ++i) {
    burst.send(sd, static_cast<std::uint32_t>(i) * perBurst);
    due.tv_nsec += 1'000'000'000 / kBurstsPerSecond;
    due.tv_sec += due.tv_nsec / 1'000'000'000;
    due.tv_nsec %= 1'000'000'000;
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
  }
  std::printf("%d %.3f\n", bursts * perBurst, secondsSince(start));
}
