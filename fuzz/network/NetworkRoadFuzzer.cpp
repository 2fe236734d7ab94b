// Passes frames through the network stack with all options on. Input: frames, each after its length in two bytes; the
// first octet of each is its link type (3 bits) and a step of time (5 bits): a power of two of microseconds, or one of
// the special steps below. Each frame is in separate memory, so that the sanitizer finds a read beyond it. The limits
// are small, so that they are reached. Each frame must be counted once.

#include <pcap/dlt.h>

#include <vector>

#include "base/FrameLimits.h"
#include "network/ForwardClock.h"
#include "network/NetworkStack.h"
#include "support/Require.h"
#include "support/Split.h"

using namespace voip;

namespace {

constexpr int kClockSetBack = 31, kOtherDevice = 30, kPause = 29;

/// Reads each byte of what it gets, and counts the frames.
class CheckingSink final : public NetworkSink {
 public:
  void takeDatagram(const Datagram& datagram) override {
    require(datagram.ends.source.isIpv4() == datagram.ends.destination.isIpv4());
    read(datagram.payload);
    ++frames;
  }
  void takeSegment(const Segment& segment) override {
    read(segment.payload);
    ++frames;
  }
  void takeSipMessage(const FlowEnds& ends, Octets message, std::int64_t) override {
    require(!message.empty() && message.size() <= longest(ends));
    read(message);
  }
  std::size_t takeTpkt(const FlowEnds&, Octets tpkt, std::int64_t) override {
    require(tpkt.size() > 4 && tpkt[0] == 3 && tpkt.size() == static_cast<std::size_t>(tpkt[2] << 8 | tpkt[3]));
    read(tpkt);
    return tpkt[4];
  }
  void refuseMessage(const FlowEnds& ends, std::uint64_t length) override { require(length > longest(ends)); }
  void refuseTail(const FlowEnds&, std::size_t missing) override { require(missing > 0 && missing <= 65535); }
  void refuseHeader(const sniff_ip&) override { ++frames; }
  void refuseProtocol(const sniff_ip&) override { ++frames; }
  void refuseTcpHeader(int) override { ++frames; }
  void count(NetworkCount what) override {
    frames += what == NetworkCount::kOtherDropped || what == NetworkCount::kTcpDropped ||
              what == NetworkCount::kDuplicatesDropped || what == NetworkCount::kFragmentsHeld ||
              what == NetworkCount::kSegmentsFollowed;
  }

  std::uint64_t frames = 0;

 private:
  static std::size_t longest(const FlowEnds& ends) { return ends.areIpv4() ? kMaxMessage : kMaxIpv6Message; }

  static void read(Octets octets) {
    volatile std::uint8_t sum = 0;
    for (const std::uint8_t octet : octets) sum = static_cast<std::uint8_t>(sum ^ octet);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  constexpr int kLinkTypes[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW,
                                DLT_NULL,   DLT_LOOP,      DLT_IPV4,       DLT_PPP_SERIAL};
  const NetworkLimits limits = {.streams = 8,
                                .openings = 2,
                                .streamMemory = 16'384,
                                .earlyMemory = 4'096,
                                .work = 700,
                                .backlogMemory = 2'048,
                                .datagrams = 4,
                                .datagramMemory = 8'192,
                                .duplicateBuckets = 2};
  CheckingSink sink;
  static const NetworkOptions options = {true, true, true, true, true, TunnelPorts("vxlan:8472,geneve:6082")};
  NetworkStack stack(options, sink, limits);
  ForwardClock clock;
  std::int64_t captured = 10'000'000'000, monotonic = 1;
  std::uint64_t frames = 0;
  for (Split pieces(data, size); pieces.more();) {
    const Bytes piece = pieces.next();
    if (piece.empty()) continue;
    const int step = piece[0] >> 3;
    captured += step == kClockSetBack ? -3'600'000'000 : step == kOtherDevice ? -40'000 : std::int64_t{1} << step;
    if (step == kPause) stack.expire(clock.advance(monotonic += 1'000'000));
    std::vector<std::uint8_t> frame(piece.begin() + 1, piece.end());
    const std::size_t length = frame.size();
    frame.resize(length + kFrameSlack);
    const FrameSource source(kLinkTypes[piece[0] & 7], step == kOtherDevice ? 2 : 1);
    stack.takeFrame(std::span(frame).first(length), source, captured, clock.at(captured, monotonic));
    ++frames;
  }
  require(sink.frames == frames);
  while (stack.flush()) {
  }
  return 0;
}
