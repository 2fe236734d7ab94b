// The cost of passing frames from the capture threads to the consumer, compared with the copies alone, made by the same
// number of threads.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <thread>
#include <vector>

#include "BenchRecorders.h"
#include "capture/Sniffer.h"

using namespace voip;

namespace {

template <typename Work>
void runOn(int threads, Work work) {
  std::vector<std::thread> running;
  for (int i = 0; i < threads; ++i) running.emplace_back(work);
  for (std::thread& thread : running) thread.join();
}

/// An engine without devices whose consumer runs on a separate thread.
struct Consumer {
  Consumer() {
    dissector->setConnections(std::make_unique<DiscardingConnection>(), nullptr);
    log4cxx::Logger::getLogger("SnifferClient")->setLevel(log4cxx::Level::getOff());
    dissector->setSniffer(&engine);
    dissector->addRtp(0x0A000002, 5000);
    thread = std::thread([this] { engine.startSniffing(); });
    while (Sniffer::getEndMain()) std::this_thread::yield();
  }
  ~Consumer() {
    engine.stopSniffing();
    thread.join();
  }
  void waitUntilIdle() {
    while (!dissector->isIdle()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  Sniffer engine;
  SngDissector* dissector = SngDissector::dft();
  std::thread thread;
};

void handOff(benchmark::State& state) {
  constexpr int kFrames = 400000;
  const int producers = static_cast<int>(state.range(0));
  const Bytes frame = Frame{}.build();
  const pcap_pkthdr header = captureHeader(frame);
  Consumer consumer;
  double cpu = 0;
  for (auto _ : state) {
    const double cpuStart = secondsOf(CLOCK_PROCESS_CPUTIME_ID);
    const double start = secondsOf(CLOCK_MONOTONIC);
    runOn(producers, [&] {
      for (int i = 0; i < kFrames / producers; ++i) Sniffer::gotPacket(nullptr, &header, frame.data());
    });
    consumer.waitUntilIdle();
    state.SetIterationTime(secondsOf(CLOCK_MONOTONIC) - start);
    cpu += secondsOf(CLOCK_PROCESS_CPUTIME_ID) - cpuStart;
  }
  cpu /= static_cast<double>(state.iterations());
  const double copyStart = secondsOf(CLOCK_PROCESS_CPUTIME_ID);
  runOn(producers, [&] {
    for (int i = 0; i < kFrames / producers; ++i) {
      benchmark::DoNotOptimize(withSlack(frame).data());
    }
  });
  const double copies = secondsOf(CLOCK_PROCESS_CPUTIME_ID) - copyStart;
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kFrames);
  // Processor time of all threads for the copies, the queue and the classification.
  state.counters["cpu_ns_per_frame"] = cpu / kFrames * 1e9;
  state.counters["ratio_to_copies"] = cpu / copies;
}
BENCHMARK(handOff)->Arg(1)->Arg(4)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

/// The queue alone, with both sides on one thread, compared with a copy of the frame.
void handOver(benchmark::State& state) {
  constexpr int kTogether = 500;
  const Bytes frame = Frame{.payload = Bytes(172)}.build();
  const pcap_pkthdr header = captureHeader(frame);
  Statistics statistics;
  PacketQueue queue(statistics);
  for (auto _ : state) {
    for (int i = 0; i < kTogether; ++i) {
      queue.push({nullptr, &header, frame.data()}, SngDissector::kMaxPacket, PacketQueue::Kind::kMedia);
    }
    while (queue.size() != 0) {
      queue.takeBatch(std::chrono::milliseconds(0));
      while (QueuedPacket* packet = queue.next()) benchmark::DoNotOptimize(packet->bytes()[0]);
    }
  }
  Bytes copy(frame.size());
  const double start = secondsOf(CLOCK_THREAD_CPUTIME_ID);
  for (int i = 0; i < 1'000'000; ++i) {
    std::memcpy(copy.data(), frame.data(), frame.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  state.counters["copy_ns"] = (secondsOf(CLOCK_THREAD_CPUTIME_ID) - start) * 1e3;
  state.counters["s_per_frame"] =
      benchmark::Counter(kTogether, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.SetItemsProcessed(state.iterations() * kTogether);
}
BENCHMARK(handOver);

double residentMegabytes() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0;
  statm >> pages >> pages;
  return static_cast<double>(pages) * 4096 / 1e6;
}

/// An hour of 50 calls with 50 frames a second and direction, at full speed. Prints the resident memory after the first
/// tenth and at the end.
void hourOfFrames(benchmark::State& state) {
  constexpr int kFrames = 50 * 2 * 50 * 3600;
  constexpr int kAtOnce = 1000;  // limits the queue, whose size would else depend on the machine
  const Bytes frame = Frame{}.build();
  const pcap_pkthdr header = captureHeader(frame);
  Consumer consumer;
  for (auto _ : state) {
    for (int i = 0; i < kFrames; ++i) {
      if (i == kFrames / 10) state.counters["resident_MB_before"] = residentMegabytes();
      if (i % kAtOnce == 0) consumer.waitUntilIdle();
      Sniffer::gotPacket(nullptr, &header, frame.data());
    }
    consumer.waitUntilIdle();
    state.counters["resident_MB_after"] = residentMegabytes();
  }
  state.SetItemsProcessed(kFrames);
  state.counters["ratio_after_to_before"] = state.counters["resident_MB_after"] / state.counters["resident_MB_before"];
}
BENCHMARK(hourOfFrames)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
