// Sends SIP calls with G.711 in both directions on an Ethernet device.
//
// Usage: call_sender DEVICE CALLS SECONDS
//
// The calls begin one after the other in the first third of SECONDS. Each has INVITE, 200 and ACK, then media for
// SECONDS with a packet every 20 ms in each direction, then BYE and 200. So all calls run at the same time for two
// thirds of SECONDS. Prints the number of frames, of media packets among them, the seconds they took, and the processor
// time of this process in percent of that.
//
// Call n is between 10.0.0.0 + 2n + 2 and the address after it, with port 4000 for the media of both. Packet k of a
// direction has the sequence number k and the 160 octets of kSpeech from speechAt() on, so that a recording can be
// compared with what was sent.

#include <arpa/inet.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Clocks.h"
#include "TxRing.h"

using namespace road;

namespace {

constexpr int kPacketMs = 20;
constexpr int kSamples = 160;
constexpr int kRtpPort = 4000;
constexpr int kSipPort = 5060;
constexpr std::size_t kHeaders = 14 + 20 + 8;
constexpr std::size_t kRtpHeader = 12;

const auto kSpeech = [] {
  std::array<std::uint8_t, 1 << 16> octets{};
  for (std::size_t i = 0; i < octets.size(); ++i) octets[i] = static_cast<std::uint8_t>(i * 2654435761U >> 24);
  return octets;
}();

/// Returns the index of the first octet of a packet in kSpeech.
std::size_t speechAt(int call, bool fromCaller, int packet) {
  const auto start = static_cast<std::size_t>(call) * 7919 + (fromCaller ? 0 : 104729);
  return (start + static_cast<std::size_t>(packet) * kSamples) % (kSpeech.size() - kSamples);
}

void put16(unsigned char* at, std::size_t value) {
  const std::uint16_t wire = htons(static_cast<std::uint16_t>(value));
  std::memcpy(at, &wire, sizeof wire);
}

void put32(unsigned char* at, std::size_t value) {
  const std::uint32_t wire = htonl(static_cast<std::uint32_t>(value));
  std::memcpy(at, &wire, sizeof wire);
}

/// Sends the frames of all calls.
class CallSender {
 public:
  CallSender(const char* device, int calls, int seconds)
      : ring_(device), calls_(calls), packets_(seconds * 1000 / kPacketMs), ramp_(seconds * 1000 / 3) {
    for (int call = 0; call < calls; ++call) inPhase_[startOf(call) % kPacketMs].push_back(call);
  }

  /// Sends what is due in millisecond `now`. Returns false when all calls have ended.
  bool sendDue(int now) {
    for (const int call : inPhase_[now % kPacketMs]) {
      if (now < startOf(call)) break;
      sendOf(call, (now - startOf(call)) / kPacketMs);
    }
    ring_.flush();
    return now <= ramp_ + (packets_ + 2) * kPacketMs;
  }

  long getFrames() const { return frames_; }
  long getMedia() const { return media_; }

 private:
  /// The millisecond in which a call begins.
  int startOf(int call) const { return static_cast<int>(static_cast<long>(ramp_) * call / calls_); }

  void sendOf(int call, int step) {
    if (step == 0) {
      sendSip(call, true, "INVITE sip:b@load SIP/2.0", "1 INVITE", true);
      sendSip(call, false, "SIP/2.0 200 OK", "1 INVITE", true);
      sendSip(call, true, "ACK sip:b@load SIP/2.0", "1 ACK", false);
    } else if (step <= packets_) {
      sendRtp(call, true, step - 1);
      sendRtp(call, false, step - 1);
    } else if (step == packets_ + 1) {
      sendSip(call, true, "BYE sip:b@load SIP/2.0", "2 BYE", false);
      sendSip(call, false, "SIP/2.0 200 OK", "2 BYE", false);
    }
  }

  static std::uint32_t addressOf(int call, bool caller) {
    return 0x0A000002U + 2 * static_cast<std::uint32_t>(call) + (caller ? 0 : 1);
  }

  void sendRtp(int call, bool fromCaller, int packet) {
    unsigned char* frame = ring_.next();
    unsigned char* rtp = frame + kHeaders;
    put16(rtp, packet == 0 ? 0x8088 : 0x8008);  // the marker, PCMA
    put16(rtp + 2, static_cast<std::size_t>(packet));
    put32(rtp + 4, static_cast<std::size_t>(packet) * kSamples);
    put32(rtp + 8, addressOf(call, fromCaller));
    std::memcpy(rtp + kRtpHeader, &kSpeech[speechAt(call, fromCaller, packet)], kSamples);
    send(frame, call, fromCaller, kRtpPort, kRtpHeader + kSamples);
    ++media_;
  }

  void sendSip(int call, bool fromCaller, const char* start, const char* cseq, bool hasSdp) {
    const std::string number = std::to_string(call), branch(cseq, 1);
    const in_addr address{htonl(addressOf(call, fromCaller))};
    char dotted[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &address, dotted, sizeof dotted);
    const std::string sdp = std::string("v=0\r\nc=IN IP4 ") + dotted + "\r\nm=audio 4000 RTP/AVP 8\r\n";
    const std::string text = std::string(start) + "\r\nVia: SIP/2.0/UDP x;branch=z9hG4bK" + number + "-" + branch +
                             "\r\nFrom: <sip:a" + number + "@load>;tag=a\r\nTo: <sip:b" + number + "@load>" +
                             (start[0] == 'I' ? "" : ";tag=b") + "\r\nCall-ID: load-" + number + "\r\nCSeq: " + cseq +
                             "\r\n" + (hasSdp ? "Content-Type: application/sdp\r\n" : "") +
                             "Content-Length: " + std::to_string(hasSdp ? sdp.size() : 0) + "\r\n\r\n" +
                             (hasSdp ? sdp : "");
    unsigned char* frame = ring_.next();
    std::memcpy(frame + kHeaders, text.data(), text.size());
    send(frame, call, fromCaller, kSipPort, text.size());
  }

  /// Writes the headers of a datagram between the same ports of both ends, and queues it.
  void send(unsigned char* frame, int call, bool fromCaller, int port, std::size_t payload) {
    constexpr unsigned char start[26] = {2,    0, 0, 0, 0, 2, 2, 0, 0,  0,  0, 1, 8, 0,  // Ethernet
                                         0x45, 0, 0, 0, 0, 0, 0, 0, 64, 17, 0, 0};       // IPv4
    std::memcpy(frame, start, sizeof start);
    put16(frame + 16, 20 + 8 + payload);
    put16(frame + 18, static_cast<std::size_t>(++frames_));
    put32(frame + 26, addressOf(call, fromCaller));
    put32(frame + 30, addressOf(call, !fromCaller));
    put16(frame + 34, static_cast<std::size_t>(port));
    put16(frame + 36, static_cast<std::size_t>(port));
    put16(frame + 38, 8 + payload);
    put16(frame + 40, 0);
    ring_.push(kHeaders + payload);
  }

  TxRing ring_;
  const int calls_, packets_, ramp_;
  std::array<std::vector<int>, kPacketMs> inPhase_;  ///< calls by the millisecond of their packets, in their order
  long frames_ = 0, media_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 1;
  CallSender sender(argv[1], std::stoi(argv[2]), std::stoi(argv[3]));
  const double start = secondsOf(CLOCK_MONOTONIC);
  Ticker ticker(1'000'000);
  for (int now = 0; sender.sendDue(now); ++now) ticker.wait();
  const double took = secondsOf(CLOCK_MONOTONIC) - start;
  std::printf("%ld %ld %.3f %.0f\n", sender.getFrames(), sender.getMedia(), took,
              100 * secondsOf(CLOCK_PROCESS_CPUTIME_ID) / took);
}
