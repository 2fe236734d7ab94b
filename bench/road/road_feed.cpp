// What the sniffer alone does: frames that are already in memory take the road from libpcap's callback to the
// recorder's socket, without a device and without a sender.
//
// Usage: road_feed TCP|UDP PORT FRAMES [THREADS]
//
// The recorder on PORT of the loopback device is a road_recorder. Prints the nanoseconds of processor time a frame in
// the threads that feed (the capture threads of a real run) and in the consumer, which classifies and sends, and the
// frames a second.

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "Clocks.h"
#include "RoadFrames.h"
#include "capture/Sniffer.h"
#include "settings/Logging.h"

using namespace road;

namespace {

constexpr int kFlows = 1000;
constexpr std::size_t kMostWaiting = 20'000;  // frames, so that the queue stays in the caches as in a run that keeps up

void feed(const Frame& frame) {
  timeval now;
  gettimeofday(&now, nullptr);
  const pcap_pkthdr header{now, sizeof frame, sizeof frame};
  Sniffer::gotPacket(nullptr, &header, frame.data());
}

void sleepABit() {
  std::this_thread::sleep_for(std::chrono::microseconds(200));
}

/// Feeds the frames of some of the flows. Returns the processor time of the calling thread in seconds.
double feedFlows(int frames, int thread, int threads) {
  Frame frame = rtpFrame();
  const pcap_pkthdr header{{}, sizeof frame, sizeof frame};
  double asleep = 0;
  const double start = secondsOf(CLOCK_THREAD_CPUTIME_ID);
  for (int i = 0; i < frames; ++i) {
    if (i % kFlows % threads != thread) continue;
    numberFrame(frame.data(), i, kFlows);
    Sniffer::gotPacket(nullptr, &header, frame.data());
    if (i / kFlows % 2 != 0 || i % kFlows >= threads) continue;
    const double before = secondsOf(CLOCK_THREAD_CPUTIME_ID);
    while (SngDissector::dft()->getQueueLength() > kMostWaiting) sleepABit();
    asleep += secondsOf(CLOCK_THREAD_CPUTIME_ID) - before;
  }
  return secondsOf(CLOCK_THREAD_CPUTIME_ID) - start - asleep;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return 1;
  std::string protocol = argv[1], port = argv[2];
  const int frames = std::stoi(argv[3]);
  const int threads = argc > 4 ? std::stoi(argv[4]) : 1;
  Sniffer engine;
  engine.setLoggerLevel("ERROR");
  std::vector<std::string> words = {"road_feed", "-d", "", "-p", port};
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  engine.configure(static_cast<int>(arguments.size()), arguments.data());
  engine.setServerProtocol(protocol.c_str());
  voip::Settings settings;
  settings.sendTimeout = 5000;
  engine.setSettings(settings);
  if (engine.setupSniffing() != 0) return 1;

  double consumer = 0;
  std::thread consuming([&] {
    engine.startSniffing();
    consumer = secondsOf(CLOCK_THREAD_CPUTIME_ID);
  });
  while (engine.getStatistics().rtpListLength == 0) {
    feed(sipFrame());
    sleepABit();
  }
  std::vector<double> fed(static_cast<std::size_t>(threads));
  std::vector<std::thread> feeders;
  const double start = secondsOf(CLOCK_MONOTONIC);
  for (int i = 0; i < threads; ++i) feeders.emplace_back([&, i] { fed[i] = feedFlows(frames, i, threads); });
  for (std::thread& feeder : feeders) feeder.join();
  while (!SngDissector::dft()->isIdle()) sleepABit();
  const double took = secondsOf(CLOCK_MONOTONIC) - start;
  engine.stopSniffing();
  consuming.join();
  double feeding = 0;
  for (const double seconds : fed) feeding += seconds;
  std::printf("%.0f %.0f %.0f\n", feeding / frames * 1e9, consumer / frames * 1e9, frames / took);
}
