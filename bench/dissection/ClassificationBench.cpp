// The cost of classifying a frame, compared with the copy that the capture thread makes of it.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <list>

#include "BenchRecorders.h"

using namespace voip;

namespace {

const Bytes kSip =
    bytes("INVITE sip:alice.example SIP/2.0\r\nVia: SIP/2.0/UDP 10.0.0.1\r\n\r\n" + std::string(600, 'x'));

double copySeconds(const Bytes& frame, int times) {
  const double start = secondsOf(CLOCK_THREAD_CPUTIME_ID);
  for (int i = 0; i < times; ++i) {
    benchmark::DoNotOptimize(withSlack(frame).data());
  }
  return (secondsOf(CLOCK_THREAD_CPUTIME_ID) - start) / times;
}

/// Copies a frame, classifies it and sends it to a recorder that discards it. Prints the nanoseconds beyond the copy,
/// and the ratio to the copy.
void classify(benchmark::State& state, const Frame& described, int listed) {
  const auto dissector = quietDissector(listed, std::make_unique<DiscardingConnection>());
  const Bytes frame = described.build();
  const double start = secondsOf(CLOCK_THREAD_CPUTIME_ID);
  for (auto _ : state) process(*dissector, frame);
  const double each = (secondsOf(CLOCK_THREAD_CPUTIME_ID) - start) / static_cast<double>(state.iterations());
  const double copy = copySeconds(frame, 200000);
  state.counters["copy_ns"] = copy * 1e9;
  state.counters["beyond_copy_ns"] = (each - copy) * 1e9;
  state.counters["ratio_to_copy"] = each / copy;
}

void dropped(benchmark::State& state) {
  classify(state, Frame{.dstPort = 9}, 0);
}
BENCHMARK(dropped);

void sip(benchmark::State& state) {
  classify(state, Frame{.payload = kSip}, 0);
}
BENCHMARK(sip);

void rtpAmongListed(benchmark::State& state) {
  classify(state, Frame{}, static_cast<int>(state.range(0)));
}
BENCHMARK(rtpAmongListed)->Arg(1)->Arg(100)->Arg(4000);

void droppedAmongListed(benchmark::State& state) {
  classify(state, Frame{.dstPort = 9}, static_cast<int>(state.range(0)));
}
BENCHMARK(droppedAmongListed)->Arg(100)->Arg(4000);

/// Media that the recorder has not asked for, to a number of destinations, dropped and kept in turns. Prints the cost
/// that keeping adds.
void keptForLater(benchmark::State& state) {
  const auto destinations = static_cast<std::uint16_t>(state.range(0));
  const auto dissector = quietDissector(0, std::make_unique<DiscardingConnection>());
  std::vector<Bytes> frames;
  Bytes rtp(172, 0xD5);
  rtp[0] = 0x80;
  for (std::uint16_t port = 0; port < destinations; ++port) {
    frames.push_back(withSlack(Frame{.dstPort = port, .payload = rtp}.build()));
  }
  const auto length = static_cast<bpf_u_int32>(frames[0].size() - kFrameSlack);
  const pcap_pkthdr header{{0, 0}, length, length};
  const auto pass = [&] {
    const double start = secondsOf(CLOCK_THREAD_CPUTIME_ID);
    for (int round = 0; round < 100'000 / destinations; ++round) {
      for (Bytes& frame : frames) {
        // Keeping writes a header over the end of the UDP header, as forwarding does.
        std::uint8_t saved[FrameHeader::kLength];
        std::memcpy(saved, frame.data() + 42 - FrameHeader::kLength, sizeof saved);
        u_char* bytes = frame.data();
        dissector->processPacket(nullptr, &header, &bytes);
        std::memcpy(frame.data() + 42 - FrameHeader::kLength, saved, sizeof saved);
      }
    }
    return (secondsOf(CLOCK_THREAD_CPUTIME_ID) - start) / (100'000 / destinations * destinations);
  };
  double dropped = 0, kept = 0;
  Settings keeping;
  keeping.lookBack = 2000;
  for (auto _ : state) {
    dissector->setSettings({});
    dropped += pass();
    dissector->setSettings(keeping);
    for (int warm = 0; warm < 3; ++warm) pass();  // until the memory is full
    kept += pass();
  }
  const auto times = static_cast<double>(state.iterations());
  state.counters["dropped_ns"] = dropped / times * 1e9;
  state.counters["keeping_ns"] = (kept - dropped) / times * 1e9;
}
BENCHMARK(keptForLater)->Arg(10)->Arg(1000);

/// A look-up of the last entry of the list, compared with a linked list of the same entries.
void lookUpAmongListed(benchmark::State& state) {
  const int listed = static_cast<int>(state.range(0));
  const auto dissector = quietDissector(listed, std::make_unique<DiscardingConnection>());
  std::list<RtpAddr> list;
  for (int i = 1; i < listed; ++i) list.emplace_back(0xC0A80000U + static_cast<u_int>(i), 5000);
  list.emplace_back(0x0A000002, 5000);

  const double start = secondsOf(CLOCK_THREAD_CPUTIME_ID);
  for (auto _ : state) benchmark::DoNotOptimize(dissector->isInRtpList(0x0A000002, 5000));
  const double each = (secondsOf(CLOCK_THREAD_CPUTIME_ID) - start) / static_cast<double>(state.iterations());

  constexpr int kTimes = 1'000'000;
  const double listStart = secondsOf(CLOCK_THREAD_CPUTIME_ID);
  for (int i = 0; i < kTimes / listed + 1; ++i) {
    benchmark::DoNotOptimize(std::find(list.begin(), list.end(), RtpAddr(0x0A000002, 5000)));
    benchmark::ClobberMemory();
  }
  const double listEach = (secondsOf(CLOCK_THREAD_CPUTIME_ID) - listStart) / (kTimes / listed + 1);
  state.counters["linked_list_ns"] = listEach * 1e9;
  state.counters["ratio_to_linked_list"] = each / listEach;
}
BENCHMARK(lookUpAmongListed)->Arg(1)->Arg(100)->Arg(4000)->Arg(100000);

/// A look-up of an IPv6 destination among others, half of which are IPv4.
void lookUpAmongBothFamilies(benchmark::State& state) {
  const auto listed = static_cast<std::uint32_t>(state.range(0));
  RtpDestinations all;
  const auto destination = [](std::uint32_t number) -> IpEndpoint {
    if (number % 2 == 0) return {number, 5000};
    return {IpAddress::read(Frame{.ipv6 = true}.address(number).data()), 5000};
  };
  for (std::uint32_t i = 0; i < listed; ++i) all.add(destination(i), 0);
  const IpEndpoint last = destination(listed - 1);
  for (auto _ : state) benchmark::DoNotOptimize(all.wantedBy(last));
}
BENCHMARK(lookUpAmongBothFamilies)->Arg(100)->Arg(100000);

/// Copies a frame of the family, classifies it with the setting IPv6 on or off, and sends it.
void sipOfFamily(benchmark::State& state) {
  const bool isIpv6 = state.range(0) == 6;
  const auto dissector = quietDissector(100, std::make_unique<DiscardingConnection>());
  Settings settings;
  settings.ipv6 = state.range(1) != 0;
  dissector->setSettings(settings);
  const Bytes frame = Frame{.payload = kSip, .ipv6 = isIpv6}.build();
  const pcap_pkthdr header = captureHeader(frame);
  for (auto _ : state) {
    Bytes copy = withSlack(frame);
    dissector->processFrame(header, copy.data(), 1);
  }
}
BENCHMARK(sipOfFamily)->Args({4, 0})->Args({4, 1})->Args({6, 1});

}  // namespace
