// The time to decode a message, as a multiple of a memory copy of its octets, and the heap allocations it needs.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "Allocations.h"
#include "h323/messages/H225.h"
#include "h323/messages/H245.h"
#include "h323/messages/Q931.h"
#include "support/Segments.h"

namespace {

using Octets = std::vector<std::uint8_t>;

Octets setup() {
  const PBYTEArray message = readSegments(kCalls[1]).at(0).message();
  return Octets(message.begin(), message.end());
}

Octets setupInformation() {
  const Octets message = setup();
  Q931 q931;
  q931.Decode(PBYTEArray(message.data(), message.size()));
  const PBYTEArray contents = q931.GetIE(Q931::UserUserIE);
  return Octets(contents.begin(), contents.end());
}

/// The first tunnelled OpenLogicalChannel of the calls.
Octets openLogicalChannel() {
  return fromHex("030000640c2013800b0d0001000a140002138900");
}

/// Processor time, because other programs share the machine.
double seconds() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

/// The time of a memory copy of the octets.
double secondsToCopy(const Octets& octets) {
  constexpr int kCopies = 1000000;
  Octets target(octets.size());
  const double start = seconds();
  for (int i = 0; i < kCopies; ++i) {
    std::memcpy(target.data(), octets.data(), octets.size());
    benchmark::ClobberMemory();
  }
  return (seconds() - start) / kCopies;
}

/// Calls `decode` in the loop. The counters are its heap allocations, the size of the message, and the number of memory
/// copies of the message that take as long.
template <class Decode>
void measure(benchmark::State& state, const Octets& octets, Decode decode) {
  const PBYTEArray array(octets.data(), octets.size());
  const double copy = secondsToCopy(octets);
  decode(array);
  const std::size_t before = allocations();
  const double start = seconds();
  for (auto _ : state) decode(array);
  const double loop = seconds() - start;
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(allocations() - before), benchmark::Counter::kAvgIterations);
  state.counters["octets"] = static_cast<double>(octets.size());
  state.counters["copies"] = loop / static_cast<double>(state.iterations()) / copy;
}

template <class Message>
void decodeWith(benchmark::State& state, const Octets& octets) {
  Message message;
  measure(state, octets, [&](const PBYTEArray& array) {
    PPER_Stream stream(array);
    benchmark::DoNotOptimize(message.Decode(stream));
  });
}

/// All steps: the attempt as H.245, Q.931, the user information, and the channels of the fast start.
void decodeSetup(benchmark::State& state) {
  H245_MultimediaSystemControlMessage control;
  Q931 q931;
  H225_H323_UserInformation information;
  H245_OpenLogicalChannel channel;
  measure(state, setup(), [&](const PBYTEArray& array) {
    PPER_Stream stream(array);
    if (control.Decode(stream)) std::abort();
    q931.Decode(array);
    PPER_Stream contents(q931.GetIE(Q931::UserUserIE));
    if (!information.Decode(contents)) std::abort();
    const auto fastStart = information.h323_uu_pdu().h323_message_body().setup()->fastStart();
    for (const PASN_OctetString& element : *fastStart) {
      PPER_Stream start(element);
      if (!channel.Decode(start)) std::abort();
    }
  });
}
BENCHMARK(decodeSetup);

void decodeSetupInformation(benchmark::State& state) {
  decodeWith<H225_H323_UserInformation>(state, setupInformation());
}
BENCHMARK(decodeSetupInformation);

void decodeOpenLogicalChannel(benchmark::State& state) {
  decodeWith<H245_MultimediaSystemControlMessage>(state, openLogicalChannel());
}
BENCHMARK(decodeOpenLogicalChannel);

/// 8,192 octets of nested lists, until the arena is full.
void refuseBomb(benchmark::State& state) {
  Octets bomb(8192);
  std::ranges::copy(fromHex("080000ff"), bomb.begin());
  decodeWith<H245_MultimediaSystemControlMessage>(state, bomb);
}
BENCHMARK(refuseBomb);

}  // namespace
