// The cost of each step of the network stack for a frame, compared with a copy of the frame in the same run. The
// highest cost of a single frame under attacks on the state of the stack.

#include <benchmark/benchmark.h>
#include <time.h>

#include <chrono>
#include <cstring>
#include <random>

#include "support/Tunnels.h"

using namespace voip;

namespace {

constexpr int kPackets = 4096;
constexpr std::int64_t kApart = 10;  // microseconds: 100,000 frames a second

struct NullSink final : NetworkSink {
  void takeDatagram(const Datagram& datagram) override { benchmark::DoNotOptimize(datagram.payload.data()); }
  void takeSegment(const Segment& segment) override { benchmark::DoNotOptimize(segment.payload.data()); }
  void takeSipMessage(const FlowEnds&, Octets message, std::int64_t) override {
    benchmark::DoNotOptimize(message.data());
  }
  std::size_t takeTpkt(const FlowEnds&, Octets tpkt, std::int64_t) override {
    benchmark::DoNotOptimize(tpkt.data());
    return 0;
  }
  void refuseMessage(const FlowEnds&, std::uint64_t) override {}
  void refuseTail(const FlowEnds&, std::size_t) override {}
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
  const auto take = [&] {
    const auto frame = next();
    const auto time = static_cast<std::int64_t>(n) * kApart;
    stack.takeFrame(frame, DLT_EN10MB, time, time);
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
  n = 0;
  for (auto _ : state) {
    take();
  }
  const double each = timed(take);
  state.counters["copy_ns"] = copying;
  state.counters["ratio_to_copy"] = each / copying;
}

NetworkOptions with(bool NetworkOptions::*option) {
  NetworkOptions options;
  options.*option = true;
  return options;
}

NetworkOptions withIpv6(NetworkOptions options = {}) {
  options.ipv6 = true;
  return options;
}

/// RTP of a thousand streams over IPv6.
std::vector<Bytes> media6() {
  std::vector<Bytes> frames;
  for (int i = 0; i < kPackets; ++i) {
    const Bytes payload = number(0x8000, 2) + number(i, 2) + number(i * 160, 4) + number(i % 1000, 4) + zeros(160);
    frames.push_back(ethernet(0x86DD, Ip6{}(udp(16384 + i % 1000, payload))));
  }
  return frames;
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
  // The RTP sequence number and part of the time stamp: all packets differ.
  std::memcpy(frame.data() + 44, &n, 4);
}

/// The path through the stack without options, which the other benchmarks contain as well.
void nothing(benchmark::State& state) {
  run(state, {}, media(true), setSequence);
}
BENCHMARK(nothing);

/// The same with the option for IPv6, which none of the frames needs.
void nothingWithIpv6(benchmark::State& state) {
  run(state, withIpv6(), media(true), setSequence);
}
BENCHMARK(nothingWithIpv6);

void ipv6(benchmark::State& state) {
  run(state, withIpv6(), media6(), [](Bytes&, std::uint64_t) {});
}
BENCHMARK(ipv6);

void allWithIpv6(benchmark::State& state) {
  run(state, withIpv6({true, true, true, true}), media(true), setSequence);
}
BENCHMARK(allWithIpv6);
void allWithoutIpv6(benchmark::State& state) {
  run(state, {true, true, true, true}, media(true), setSequence);
}
BENCHMARK(allWithoutIpv6);

void duplicatesIpv6(benchmark::State& state) {
  run(state, withIpv6(with(&NetworkOptions::dropDuplicates)), media6(), [](Bytes& frame, std::uint64_t n) {
    std::memcpy(frame.data() + 64, &n, 4);  // as setSequence()
  });
}
BENCHMARK(duplicatesIpv6);

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

void decapsulateGtp(benchmark::State& state) {
  const auto wrap = [](const Bytes& packet) {
    return Ip{}(udp(2152, number(0x30FF, 2) + number(packet.size(), 2) + zeros(4) + checked(packet)));
  };
  run(state, with(&NetworkOptions::decapsulate), media(true, wrap), [](Bytes&, std::uint64_t) {});
}
BENCHMARK(decapsulateGtp);

/// Segments of streams that carry neither SIP nor TPKTs, with or without the first octets of the stream.
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
void twoIpv6Fragments(benchmark::State& state) {
  const std::vector<Bytes> frames = {ethernet(0x86DD, fragment6(1, 1, zeros(800))),
                                     ethernet(0x86DD, fragment6(1, 800, zeros(800)))};
  run(state, withIpv6(with(&NetworkOptions::reassembleFragments)), frames, [](Bytes&, std::uint64_t) {});
}
BENCHMARK(twoIpv6Fragments);

// ---- attacks ----

/// Takes frames and keeps the highest processor time of one frame. The clock would include the time of other processes.
class Attack {
 public:
  explicit Attack(const NetworkOptions& options) : stack_(options, sink_) {}

  void take(const Bytes& packet, std::int64_t time) {
    Bytes frame = ethernet(0x0800, packet) + zeros(kFrameSlack);
    const double before = processorTime();
    stack_.takeFrame(std::span(frame).first(frame.size() - kFrameSlack), DLT_EN10MB, time, time);
    worst_ = std::max(worst_, processorTime() - before);
    ++frames_;
  }

  /// A segment of one of many streams.
  void takeSegment(int stream, std::uint32_t sequence, const Bytes& payload, std::int64_t time, int flags = 0x10) {
    take(Ip{.protocol = 6, .id = 0, .source = 0x0B000000 + static_cast<std::uint32_t>(stream)}(
             tcp(sequence, payload, flags)),
         time);
  }

  void report(benchmark::State& state) const {
    state.counters["frames"] = static_cast<double>(frames_);
    state.counters["worst_us"] = worst_;
  }

 private:
  static double processorTime() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
  }

  NullSink sink_;
  NetworkStack stack_;
  double worst_ = 0;
  std::uint64_t frames_ = 0;
};

template <class Work>
void attack(benchmark::State& state, bool NetworkOptions::*option, Work work) {
  for (auto _ : state) {
    Attack frames(with(option));
    work(frames);
    frames.report(state);
  }
}

constexpr auto kTcp = &NetworkOptions::reassembleTcp;
const Bytes kStart = text("OPTIONS sip:a@b SIP/2.0\r\nl: 0\r\n\r\n");

/// Streams with many gaps, all of which are given up at the same time.
void attackWithHoles(benchmark::State& state) {
  attack(state, kTcp, [](Attack& frames) {
    constexpr int kStreams = 250, kHoles = 4'020;
    std::int64_t time = 0;
    for (int stream = 0; stream < kStreams; ++stream) frames.takeSegment(stream, 0, kStart, 0);
    for (int hole = kHoles; hole > 0; --hole) {
      for (int stream = 0; stream < kStreams; ++stream) {
        frames.takeSegment(stream, static_cast<std::uint32_t>(100 + 2 * hole), {'x'}, ++time);
      }
    }
    for (int i = 0; i < 50'000; ++i) frames.takeSegment(0, 50, {'x'}, time + 2'000'001);
  });
}
BENCHMARK(attackWithHoles)->Iterations(1);

/// A gap before a header that arrives octet by octet, in many segments.
void attackWithOctets(benchmark::State& state, const Bytes& octets, const Bytes& handshake) {
  attack(state, kTcp, [&](Attack& frames) {
    constexpr std::uint32_t kFirst = 1;
    frames.takeSegment(0, kFirst - 1, {}, 0, 0x02);
    const auto at = kFirst + static_cast<std::uint32_t>(handshake.size());
    for (std::uint32_t i = 1; i < octets.size(); ++i) frames.takeSegment(0, at + i, {octets[i]}, i);
    frames.takeSegment(0, kFirst, handshake + Bytes{octets[0]}, 10'000);
    for (int i = 0; i < 1'000; ++i) frames.takeSegment(0, 0, {'x'}, 20'000);
  });
}
void attackWithLongLine(benchmark::State& state) {
  attackWithOctets(state, text("OPTIONS sip:" + std::string(8'100, 'a')), {});
}
BENCHMARK(attackWithLongLine)->Iterations(1);
void attackWithLongHeader(benchmark::State& state) {
  attackWithOctets(state, kStart + text(std::string(30'000, '\r')), kStart);
}
BENCHMARK(attackWithLongHeader)->Iterations(1);

/// Large segments in which a message could begin at any octet.
void attackWithBeginnings(benchmark::State& state, const std::string& opening, const std::string& beginning) {
  attack(state, kTcp, [&](Attack& frames) {
    frames.takeSegment(0, 0, {}, 0, 0x02);
    frames.takeSegment(0, 1, text(opening), 0);
    std::string many;
    while (many.size() + beginning.size() < 65'000) many += beginning;
    auto at = static_cast<std::uint32_t>(1 + opening.size() + 10);  // a gap: the stream is out of step
    for (int i = 0; i < 20; ++i, at += static_cast<std::uint32_t>(many.size())) {
      frames.takeSegment(0, at, text(many), 3'000'000 + i);
      frames.takeSegment(1, 0, {}, 6'000'000 + i, 0x02);
    }
  });
}
void attackWithTpkts(benchmark::State& state) {
  attackWithBeginnings(state, {"\3\0\0\5x", 5}, {"\3\0\1", 3});
}
BENCHMARK(attackWithTpkts)->Iterations(1);
void attackWithStartLines(benchmark::State& state) {
  attackWithBeginnings(state, "OPTIONS sip:a@b SIP/2.0\r\nl: 0\r\n\r\n", "A a:b SIP/2.0\n");
}
BENCHMARK(attackWithStartLines)->Iterations(1);
void attackWithFrames(benchmark::State& state) {
  attackWithBeginnings(state, "GET / HTTP/1.1\r\nSec-WebSocket-Protocol: sip\r\n\r\n",
                       "\x81\x7D"
                       "A a:b");
}
BENCHMARK(attackWithFrames)->Iterations(1);

Bytes manyMessages() {
  std::string many;
  while (many.size() < 64'900) many += "SIP/2.0 200 \nl:0\n\n";
  return text(many);
}

/// Long segments of small messages.
void attackWithMessages(benchmark::State& state) {
  attack(state, kTcp, [](Attack& frames) {
    const Bytes many = manyMessages();
    frames.takeSegment(0, 0, {}, 0, 0x02);
    for (std::uint32_t i = 0; i < 100; ++i) {
      frames.takeSegment(0, 1 + i * static_cast<std::uint32_t>(many.size()), many, i);
    }
  });
}
BENCHMARK(attackWithMessages)->Iterations(1);

/// The same in another numbering, which waits until the early segments of the present one have been passed on.
void attackWithAnotherNumbering(benchmark::State& state) {
  attack(state, kTcp, [](Attack& frames) {
    const Bytes many = manyMessages();
    frames.takeSegment(0, 0, kStart, 0);
    for (std::uint32_t i = 0; i < 2'000; ++i) frames.takeSegment(0, 100 + 2 * i, {'x'}, i);
    for (std::uint32_t i = 0; i < 100; ++i) {
      frames.takeSegment(0, 0x40000000 + i * static_cast<std::uint32_t>(many.size()), many, 2'000 + i);
    }
  });
}
BENCHMARK(attackWithAnotherNumbering)->Iterations(1);

/// More early data than the memory takes, in large and in small streams.
void attackOnMemory(benchmark::State& state) {
  attack(state, kTcp, [](Attack& frames) {
    std::int64_t time = 0;
    for (int stream = 0; stream < 600; ++stream) {
      frames.takeSegment(stream, 0, kStart, time);
      for (std::uint32_t i = 0; i < 1'900; ++i) frames.takeSegment(stream, 1'000 + 2 * i, {'x'}, ++time);
    }
    for (int stream = 1'000; stream < 61'000; ++stream) {
      frames.takeSegment(stream, 0, text("OPTIONS sip:a@b SIP/2.0\r\n") + zeros(1'300), ++time);
    }
  });
}
BENCHMARK(attackOnMemory)->Iterations(1);

/// As many incomplete datagrams as are kept, all of which are too old at the same time.
void attackWithFragments(benchmark::State& state) {
  attack(state, &NetworkOptions::reassembleFragments, [](Attack& frames) {
    for (int id = 0; id < 5'000; ++id) frames.take(Ip{.id = id, .fragment = 0x2000 + 200}(zeros(800)), id);
    for (int id = 0; id < 200; ++id) frames.take(Ip{.id = id, .fragment = 0x2000}(zeros(800)), 40'000'000);
  });
}
BENCHMARK(attackWithFragments)->Iterations(1);

/// Long frames of tunnels whose headers never end, after layers of other tunnels.
void attackWithHeaders(benchmark::State& state) {
  attack(state, &NetworkOptions::decapsulate, [](Attack& frames) {
    const Bytes headers[] = {
        udp(37008, number(0x01000001, 4) + zeros(64'000)),                             // tags of TZSP
        udp(2152, number(0x34FFFFF0, 4) + zeros(7) + Bytes(64'000, std::uint8_t{1})),  // extension headers of GTP-U
        udp(4789, number(8, 1) + zeros(7) + ethernet(0x8847, zeros(64'000))),          // labels
        udp(4789,
            number(8, 1) + zeros(7) +
                ethernet(0x8847, number(0x140, 4) + zeros(12) + number(0x8100, 2) + Bytes(64'000, std::uint8_t{0x81}))),
    };
    for (const Bytes& header : headers) {
      Bytes packet = Ip{}(header);
      for (int layer = 0; layer < 6; ++layer) packet = Ip{.protocol = 4}(packet);
      for (int i = 0; i < 100; ++i) frames.take(packet, i);
    }
  });
}
BENCHMARK(attackWithHeaders)->Iterations(1);

}  // namespace
