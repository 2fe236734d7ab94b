// The cost of a further recorder for each frame: on the thread that classifies, and on the recorder's thread without
// the send. And the look-up of a destination among those of several recorders.

#include <benchmark/benchmark.h>

#include "BenchRecorders.h"
#include "forwarding/FanOut.h"

using namespace voip;

namespace {

void handToLane(benchmark::State& state) {
  constexpr int kTogether = 2000;  // reading the clock takes as long as some frames
  log4cxx::Logger::getLogger("SnifferClient")->setLevel(log4cxx::Level::getOff());
  Settings settings;
  settings.lookBack = static_cast<int>(state.range(0));
  Statistics statistics;
  RtpDestinations all;
  all.setRecorders(2);
  RecorderLane lane(all, 1, statistics);
  QueuedLane queued(lane, 2, "a recorder", 64 << 20, statistics);
  lane.configure(settings, queued.queue);
  lane.links().take(std::make_unique<DiscardingConnection>(), nullptr);
  const Frame rtp{.payload = Bytes(172, 0x80)};
  all.add({rtp.dstIp, rtp.dstPort}, 1);
  Bytes frame = forwarded(2, rtp, rtp.payload);
  double push = 0, send = 0;
  for (auto _ : state) {
    const double start = secondsOf(CLOCK_THREAD_CPUTIME_ID);
    for (int i = 0; i < kTogether; ++i) queued.queue.push({{}, frame});
    queued.queue.publish();
    const double pushed = secondsOf(CLOCK_THREAD_CPUTIME_ID);
    queued.drain();
    send += secondsOf(CLOCK_THREAD_CPUTIME_ID) - pushed;
    push += pushed - start;
  }
  const double frames = static_cast<double>(state.iterations()) * kTogether;
  state.counters["classifying_ns"] = push / frames * 1e9;
  state.counters["lane_ns"] = send / frames * 1e9;
}
BENCHMARK(handToLane)->Arg(0)->Arg(2000);

void lookUpForRecorders(benchmark::State& state) {
  constexpr u_int kListed = 100'000;
  const auto recorders = static_cast<unsigned>(state.range(0));
  RtpDestinations all;
  all.setRecorders(recorders);
  for (unsigned recorder = 0; recorder < recorders; ++recorder) {
    for (u_int i = 0; i < kListed; ++i) all.add({0x0A000000 + i, 5000}, recorder);
  }
  const double start = secondsOf(CLOCK_THREAD_CPUTIME_ID);
  u_int i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(all.wantedBy({0x0A000000 + i, 5000}));
    i = (i + 7919) % kListed;
  }
  const double seconds = secondsOf(CLOCK_THREAD_CPUTIME_ID) - start;
  state.counters["look_up_ns"] = seconds / static_cast<double>(state.iterations()) * 1e9;
}
BENCHMARK(lookUpForRecorders)->Arg(1)->Arg(2)->Arg(32);

}  // namespace
