// The time from a segment to its text: the median and the 99th percentile over messages of all kinds, and the multiple
// of a memory copy of the same segments. The time for the worst known segments, and for segments of other protocols.

#include <benchmark/benchmark.h>
#include <log4cxx/appenderskeleton.h>
#include <log4cxx/logger.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "network/NetworkOptions.h"
#include "network/Work.h"
#include "signalling/H323Parser.h"
#include "support/Segments.h"

using namespace voip;

namespace {

struct Discard : log4cxx::AppenderSkeleton {
  void append(const log4cxx::spi::LoggingEventPtr&, log4cxx::helpers::Pool&) override {}
  void close() override {}
  bool requiresLayout() const override { return false; }
};

/// Logs as in operation, but discards the lines.
void logAtInfo() {
  static const auto discard = std::make_shared<Discard>();
  const auto logger = log4cxx::Logger::getLogger("SnifferClient");
  logger->setAdditivity(false);
  logger->setLevel(log4cxx::Level::getInfo());
  logger->addAppender(discard);
}

double medianOfCopies = 0;

/// Times `work` on each segment separately. All times include reading the clock, also those of the copies.
template <class Work>
double measureEach(benchmark::State& state, std::vector<Segment> segments, Work work) {
  using Clock = std::chrono::steady_clock;
  std::vector<std::vector<double>> times(segments.size());
  for (auto _ : state) {
    for (std::size_t i = 0; i < segments.size(); ++i) {
      const auto start = Clock::now();
      work(segments[i]);
      times[i].push_back(std::chrono::duration<double, std::nano>(Clock::now() - start).count());
    }
  }
  const auto quantile = [](std::vector<double>& values, double part) {
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
  };
  std::vector<double> typical;
  for (auto& ofOneSegment : times) typical.push_back(quantile(ofOneSegment, 0.5));
  const double median = quantile(typical, 0.5);
  state.counters["median_ns"] = median;
  state.counters["p99_ns"] = quantile(typical, 0.99);
  if (medianOfCopies != 0) state.counters["copies"] = median / medianOfCopies;
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(segments.size()));
  return median;
}

void copySegment(benchmark::State& state) {
  std::vector<u_char> target(65536);
  medianOfCopies = measureEach(state, readSegments(kRandom), [&](const Segment& segment) {
    std::memcpy(target.data(), segment.payload.data(), segment.payload.size());
    benchmark::ClobberMemory();
  });
}
BENCHMARK(copySegment);

void describeSegments(benchmark::State& state, const char* recording) {
  logAtInfo();
  H323Parser parser;
  measureEach(state, readSegments(recording), [&](Segment& segment) {
    PString text;
    benchmark::DoNotOptimize(parser.parseH323(segment.payload.data(), static_cast<int>(segment.payload.size()),
                                              kHeaderLength, segment.tx_ip, segment.rx_ip, segment.tx_port,
                                              segment.rx_port, text));
  });
}
BENCHMARK_CAPTURE(describeSegments, everyKindOfMessage, kRandom);
BENCHMARK_CAPTURE(describeSegments, callWithTunnelledH245, kCalls[3]);

/// The TPKTs of a segment, as TCP reassembly passes them on.
std::vector<std::span<u_char>> tpktsOf(std::span<u_char> segment) {
  std::vector<std::span<u_char>> tpkts;
  while (segment.size() >= kTpktLength) {
    const std::size_t length = std::clamp<std::size_t>(segment[2] << 8 | segment[3], kTpktLength, segment.size());
    tpkts.push_back(segment.first(length));
    segment = segment.subspan(length);
  }
  return tpkts;
}

/// Segments of up to 8,192 octets that execute the most basic blocks, and segments full of small TPKTs. The limit is
/// 100 us, or 200 us for a segment that describes hundreds of channels.
void describeWorst(benchmark::State& state, std::vector<u_char> segment) {
  logAtInfo();
  H323Parser parser;
  std::string texts;
  const auto tpkts = tpktsOf(segment);
  for (auto _ : state) {
    texts.clear();
    Work work(NetworkLimits().work);
    for (const std::span<u_char> tpkt : tpkts) {
      if (work.isSpent()) break;  // the others follow with later frames
      PString text;
      parser.parseH323(tpkt.data(), static_cast<int>(tpkt.size()), 0, 1U, 2U, 3U, 4U, text);
      texts += text;
      work.spend(Work::kTpkt + parser.steps());
    }
    benchmark::DoNotOptimize(texts.data());
  }
  state.counters["octets"] = static_cast<double>(segment.size());
  state.counters["TPKTs"] = static_cast<double>(tpkts.size());
  state.counters["channels"] = static_cast<double>(std::count(texts.begin(), texts.end(), 'm'));
}

const bool registered = [] {
  std::ifstream file(WORST_SEGMENTS);
  for (std::string name, octets; file >> name >> octets;) {
    benchmark::RegisterBenchmark(("describeWorst/" + name).c_str(), describeWorst, fromHex(octets))
        ->Unit(benchmark::kMicrosecond);
  }
  return true;
}();

/// The time of an iteration is that of one segment, which is too short to be timed separately.
void refuseOtherProtocols(benchmark::State& state) {
  using namespace std::string_view_literals;
  std::vector<std::vector<u_char>> payloads;
  for (const std::string_view start : {"GET / HTTP/1.1\r\nHost: www\r\n"sv, "\x16\x03\x01\x02\x00\x01"sv,
                                       "\x17\x03\x03\x05\x78"sv, "\0"sv, "\x03\0\0\0 keep alive"sv, "SSH-2.0"sv}) {
    auto& payload = payloads.emplace_back(kHeaderLength + 1460);
    std::copy(start.begin(), start.end(), payload.begin() + kHeaderLength);
  }
  H323Parser parser;
  std::size_t next = 0;
  PString text;
  for (auto _ : state) {
    std::vector<u_char>& payload = payloads[next];
    next = next + 1 == payloads.size() ? 0 : next + 1;
    benchmark::DoNotOptimize(
        parser.parseH323(payload.data(), static_cast<int>(payload.size()), kHeaderLength, 1U, 2U, 80U, 50000U, text));
  }
}
BENCHMARK(refuseOtherProtocols);

}  // namespace
