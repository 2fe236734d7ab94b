// What each step of the network stack costs a frame, beside a copy of the frame in the same run.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <random>

#include "support/Packets.h"

using namespace voip;

namespace {

constexpr int kPackets = 4096;
constexpr std::int64_t kApart = 10;  // microseconds: 100,000 frames a second

struct NullSink final : NetworkSink {
  void takeDatagram(const Datagram& datagram) override { benchmark::DoNotOptimize(datagram.payload.data()); }
  void takeSegment(const Segment& segment) override { benchmark::DoNotOptimize(segment.payload.data()); }
  void takeSipMessage(const FlowEnds&, std::span<const std::uint8_t> message) override {
    benchmark::DoNotOptimize(message.data());
  }
  void takeTpkt(const FlowEnds&, std::span<const std::uint8_t> tpkt) override {
    benchmark::DoNotOptimize(tpkt.data());
  }
  void refuseMessage(const FlowEnds&, std::uint64_t) override {}
  void refuseHeader(const sniff_ip&) override {}
  void refuseProtocol(const sniff_ip&) override {}
  void refuseTcpHeader(int) override {}
  void count(NetworkCount) override { ++counted; }

  std::uint64_t counted = 0;
};

/// Takes `frames` again and again, `changes(frame, n)` before the n-th, and prints the ratio to copying them.
template <class Change>
void run(benchmark::State& state, const NetworkOptions& options, std::vector<Bytes> frames, Change change) {
  NullSink sink;
  NetworkStack stack(options, sink);
  for (Bytes& frame : frames) frame.resize(frame.size() + kFrameSlack);
  std::uint64_t n = 0;
  const auto next = [&]() -> std::span<std::uint8_t> {
    Bytes& frame = frames[n % frames.size()];
    change(frame, n++);
    return std::span(frame).first(frame.size() - kFrameSlack);
  };
  Bytes copy(65536);
  const auto timed = [&](auto&& work) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 200'000; ++i) work();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() / 200'000;
  };
  const double copying = timed([&] {
    const auto frame = next();
    std::memcpy(copy.data(), frame.data(), frame.size());
    benchmark::DoNotOptimize(copy.data());
  });
  for (auto _ : state) {
    const auto frame = next();
    stack.takeFrame(frame, DLT_EN10MB, static_cast<std::int64_t>(n) * kApart);
  }
  const double each = timed([&] { stack.takeFrame(next(), DLT_EN10MB, static_cast<std::int64_t>(n) * kApart); });
  state.counters["copy_ns"] = copying;
  state.counters["ratio_to_copy"] = each / copying;
}

NetworkOptions with(bool NetworkOptions::*option) {
  NetworkOptions options;
  options.*option = true;
  return options;
}

/// RTP of a thousand streams, numbered by the sender or not.
std::vector<Bytes> media(bool numbered, Bytes (*wrap)(const Bytes&) = nullptr) {
  std::vector<Bytes> frames;
  for (int i = 0; i < kPackets; ++i) {
    const Bytes payload = number(0x8000, 2) + number(i, 2) + number(i * 160, 4) + number(i % 1000, 4) + zeros(160);
    const Bytes packet = Ip{.id = numbered ? i + 1 : 0}(udp(16384 + i % 1000, payload));
    frames.push_back(ethernet(0x0800, wrap != nullptr ? wrap(packet) : packet));
  }
  return frames;
}

void setSequence(Bytes& frame, std::uint64_t n) {
  // The RTP sequence number and part of the time stamp: no packet is like another.
  std::memcpy(frame.data() + 44, &n, 4);
}

/// The way through the stack with nothing on, which the others have as well.
void nothing(benchmark::State& state) {
  run(state, {}, media(true), setSequence);
}
BENCHMARK(nothing);

void duplicates(benchmark::State& state, bool numbered) {
  run(state, with(&NetworkOptions::dropDuplicates), media(numbered), setSequence);
}
void duplicatesNumbered(benchmark::State& state) {
  duplicates(state, true);
}
BENCHMARK(duplicatesNumbered);
void duplicatesNotNumbered(benchmark::State& state) {
  duplicates(state, false);
}
BENCHMARK(duplicatesNotNumbered);

void decapsulatePlain(benchmark::State& state) {
  run(state, with(&NetworkOptions::decapsulate), media(true), [](Bytes&, std::uint64_t) {});
}
BENCHMARK(decapsulatePlain);

void decapsulateVxlan(benchmark::State& state) {
  const auto wrap = [](const Bytes& packet) {
    return Ip{}(udp(4789, number(8, 1) + zeros(7) + ethernet(0x0800, packet)));
  };
  run(state, with(&NetworkOptions::decapsulate), media(true, wrap), [](Bytes&, std::uint64_t) {});
}
BENCHMARK(decapsulateVxlan);

/// Segments of streams that carry neither SIP nor TPKTs; their first octets were seen, or not.
void neither(benchmark::State& state, bool seenFromStart) {
  std::vector<Bytes> frames;
  const auto streams = static_cast<int>(state.range(0));
  std::mt19937 random(1);
  for (int i = 0; i < std::max(streams, kPackets); ++i) {
    Bytes packet = Ip{.protocol = 6, .id = i}(tcp(1, text("\x17\x03\x03") + zeros(1400)));
    const std::uint32_t source = 0x0A000000 + static_cast<std::uint32_t>(i % streams);
    const Bytes address = number(source, 4);
    std::copy(address.begin(), address.end(), packet.begin() + 12);
    frames.push_back(ethernet(0x0800, packet));
  }
  std::shuffle(frames.begin(), frames.end(), random);
  const auto count = frames.size();
  run(state, with(&NetworkOptions::reassembleTcp), std::move(frames), [&](Bytes& frame, std::uint64_t n) {
    // The first round of each opens its stream.
    frame[47] = seenFromStart && n < count ? 0x02 : 0x10;
  });
}
void neitherKnown(benchmark::State& state) {
  neither(state, true);
}
BENCHMARK(neitherKnown)->Arg(100)->Arg(1000)->Arg(20000);
void neitherFromTheMiddle(benchmark::State& state) {
  neither(state, false);
}
BENCHMARK(neitherFromTheMiddle)->Arg(100)->Arg(1000)->Arg(20000);

void sipOverTcp(benchmark::State& state) {
  const Bytes message =
      text("OPTIONS sip:a@b SIP/2.0\r\nVia: SIP/2.0/TCP x\r\nContent-Length: 600\r\n\r\n") + zeros(600);
  run(state, with(&NetworkOptions::reassembleTcp), {ethernet(0x0800, Ip{.protocol = 6}(tcp(1, message)))},
      [&](Bytes& frame, std::uint64_t n) {
        const Bytes sequence = number(n * message.size(), 4);
        std::copy(sequence.begin(), sequence.end(), frame.begin() + 38);
      });
}
BENCHMARK(sipOverTcp);

void twoFragments(benchmark::State& state) {
  std::vector<Bytes> frames;
  for (int part = 0; part < 2; ++part) {
    frames.push_back(ethernet(0x0800, Ip{.fragment = part == 0 ? 0x2000 : 100}(zeros(800))));
  }
  run(state, with(&NetworkOptions::reassembleFragments), frames, [](Bytes&, std::uint64_t) {});
}
BENCHMARK(twoFragments);

}  // namespace
