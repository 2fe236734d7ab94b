// Sends RTP frames on an Ethernet device at a steady rate.
//
// Usage: road_sender DEVICE FRAMES_PER_SECOND SECONDS [FLOWS]
//        road_sender DEVICE opener
//
// The frames belong to G.711 streams to 10.0.0.2:5000, one for each source port from 4000 on. The four bytes after the
// RTP header contain their number in their stream, in network byte order. Sends a thousand bursts a second. Prints the
// number of frames, the seconds they took, and the processor time of this process in percent of that. The second form
// sends one SIP request, whose frame makes a sniffer connect to its recorder.

#include <cstdio>
#include <string>

#include "Clocks.h"
#include "RoadFrames.h"
#include "TxRing.h"

using namespace road;

namespace {

constexpr int kBurstsPerSecond = 1000;

void sendOpener(TxRing& ring) {
  const Frame opener = sipFrame();
  std::memcpy(ring.next(), opener.data(), opener.size());
  ring.push(opener.size());
  ring.flush();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 1;
  TxRing ring(argv[1]);
  if (argc == 3) {
    sendOpener(ring);
    return 0;
  }
  const int perBurst = std::stoi(argv[2]) / kBurstsPerSecond;
  const int bursts = std::stoi(argv[3]) * kBurstsPerSecond;
  const int flows = argc > 4 ? std::stoi(argv[4]) : 1;
  const Frame frame = rtpFrame();
  for (unsigned i = 0; i < TxRing::kSlots; ++i) std::memcpy(ring.slot(i), frame.data(), frame.size());
  const double start = secondsOf(CLOCK_MONOTONIC);
  const double used = secondsOf(CLOCK_PROCESS_CPUTIME_ID);
  Ticker ticker(1'000'000'000 / kBurstsPerSecond);
  for (int burst = 0; burst < bursts; ++burst) {
    for (int i = burst * perBurst; i < (burst + 1) * perBurst; ++i) {
      numberFrame(ring.next(), i, flows);
      ring.push(frame.size());
    }
    ring.flush();
    ticker.wait();
  }
  const double took = secondsOf(CLOCK_MONOTONIC) - start;
  const double busy = (secondsOf(CLOCK_PROCESS_CPUTIME_ID) - used) / took;
  std::printf("%d %.3f %.0f\n", bursts * perBurst, took, 100 * busy);
}
