// The cost of forwarding RTP frames to a recorder, compared with a bare loop that sends the same frames on a socket of
// the same kind. The two take turns in short rounds that fit into the recorder's buffers, which are emptied after each
// round. So only the sending side is measured, and no frame is lost.

#include <benchmark/benchmark.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>

#include "BenchRecorders.h"
#include "recorder/EmbeddedConnection.h"
#include "recorder/TcpConnection.h"
#include "recorder/UdpConnection.h"
#include "support/Loopback.h"

using namespace voip;

namespace {

constexpr int kFramesInRound = 100;
const Frame kRtp{.payload = Bytes(172, 0x55)};  // 20 ms of G.711

/// Reads the frames of one round from a recorder's socket.
void drain(const Loopback& recorder, int type, std::size_t frameSize) {
  static Bytes buffer(1 << 20);
  std::size_t left = type == SOCK_STREAM ? kFramesInRound * frameSize : kFramesInRound;
  while (left > 0) {
    const ssize_t n = recv(recorder.sd, buffer.data(), buffer.size(), 0);
    if (n <= 0) break;
    left -= std::min(left, type == SOCK_STREAM ? static_cast<std::size_t>(n) : 1);
  }
  if (left != 0) std::abort();
}

void waitUntilAcknowledged(int sd) {
  for (int unsent = 1; unsent > 0;) ioctl(sd, SIOCOUTQ, &unsent);
}

/// Seconds of all rounds.
struct Rounds {
  double bare = 0;
  double through = 0;
};

/// Alternates the two rounds, which have separate recorders and return their seconds: `bareRound` sends the frames,
/// `throughRound` classifies and sends them.
template <typename Bare, typename Through>
void compare(benchmark::State& state, const Bytes& captured, Bare bareRound, Through throughRound) {
  Rounds seconds;
  for (auto _ : state) {
    seconds.bare += bareRound();
    const double through = throughRound();
    seconds.through += through;
    state.SetIterationTime(through);
  }
  const double frames = static_cast<double>(state.iterations()) * kFramesInRound;
  state.counters["bare_ns"] = seconds.bare / frames * 1e9;
  state.counters["through_ns"] = seconds.through / frames * 1e9;
  state.counters["ratio_to_bare_send"] = seconds.through / seconds.bare;
  state.SetItemsProcessed(static_cast<std::int64_t>(frames));
  state.SetBytesProcessed(static_cast<std::int64_t>(frames * static_cast<double>(captured.size())));
}

/// Queues the frames of a round. Returns the seconds that the sending thread takes for them, without the copy, which is
/// the capture thread's work.
double forwardRound(SngDissector& dissector, const Bytes& captured) {
  for (int i = 0; i < kFramesInRound; ++i) produce(dissector, captured);
  const double start = secondsOf(CLOCK_THREAD_CPUTIME_ID);
  while (dissector.getQueueLength() != 0) dissector.consumePacket();
  return secondsOf(CLOCK_THREAD_CPUTIME_ID) - start;
}

/// Returns the frames of a round, each in separate memory like captured frames.
std::vector<Bytes> framesOfRound() {
  return std::vector<Bytes>(kFramesInRound, forwarded(2, kRtp, kRtp.payload));
}

template <typename Send>
double bareRound(const std::vector<Bytes>& frames, Send send) {
  const double start = secondsOf(CLOCK_THREAD_CPUTIME_ID);
  for (const Bytes& frame : frames) send(frame);
  return secondsOf(CLOCK_THREAD_CPUTIME_ID) - start;
}

void forwardOverTcp(benchmark::State& state) {
  const Bytes captured = kRtp.build();
  const std::vector<Bytes> frames = framesOfRound();
  const Loopback listener(SOCK_STREAM, 0);
  auto connection = std::make_unique<TcpConnection>("127.0.0.1", listener.port());
  while (!connection->isConnected()) connection->tcpConnect();
  const auto dissector = quietDissector(100, std::move(connection));
  const Loopback recorder = listener.accept();

  const Loopback bare(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
  const sockaddr_in address = Loopback::at(listener.port());
  while (connect(bare.sd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
  }
  const int size = 60000;
  setsockopt(bare.sd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
  const Loopback bareRecorder = listener.accept();
  compare(
      state, captured,
      [&] {
        const double seconds = bareRound(frames, [&](const Bytes& frame) {
          if (send(bare.sd, frame.data(), frame.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(frame.size()))
            std::abort();
        });
        drain(bareRecorder, SOCK_STREAM, frames[0].size());
        waitUntilAcknowledged(bare.sd);
        return seconds;
      },
      [&] {
        const double seconds = forwardRound(*dissector, captured);
        drain(recorder, SOCK_STREAM, frames[0].size());
        return seconds;
      });
}
BENCHMARK(forwardOverTcp)->UseManualTime();

void forwardOverUdp(benchmark::State& state) {
  const Bytes captured = kRtp.build();
  const std::vector<Bytes> frames = framesOfRound();
  const Loopback recorder(SOCK_DGRAM, 0);
  const Loopback bareRecorder(SOCK_DGRAM, 0);
  const auto dissector = quietDissector(100, std::make_unique<UdpConnection>("127.0.0.1", recorder.port()));
  const Loopback bare(SOCK_DGRAM, 0);
  const sockaddr_in address = Loopback::at(bareRecorder.port());
  compare(
      state, captured,
      [&] {
        const double seconds = bareRound(frames, [&](const Bytes& frame) {
          if (sendto(bare.sd, frame.data(), frame.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                     sizeof address) != static_cast<ssize_t>(frame.size())) {
            std::abort();
          }
        });
        drain(bareRecorder, SOCK_DGRAM, frames[0].size());
        return seconds;
      },
      [&] {
        const double seconds = forwardRound(*dissector, captured);
        drain(recorder, SOCK_DGRAM, frames[0].size());
        return seconds;
      });
}
BENCHMARK(forwardOverUdp)->UseManualTime();

/// Returns the seconds that copying the frames of a round takes.
double copyRound(const std::vector<Bytes>& frames) {
  Bytes buffer(frames[0].size());
  return bareRound(frames, [&](const Bytes& frame) {
    std::copy(frame.begin(), frame.end(), buffer.begin());
    benchmark::DoNotOptimize(buffer.data());
    benchmark::ClobberMemory();
  });
}

/// Forwarding to a recorder that discards the frames, compared with a copy of the frame: the cost without the send.
void forwardToNowhere(benchmark::State& state) {
  const Bytes captured = kRtp.build();
  const auto dissector = quietDissector(100, std::make_unique<DiscardingConnection>());
  const std::vector<Bytes> frames = framesOfRound();
  compare(
      state, captured, [&] { return copyRound(frames); }, [&] { return forwardRound(*dissector, captured); });
}
BENCHMARK(forwardToNowhere)->UseManualTime();

/// Forwarding to a host in this process, which fetches the frames after each round, compared with a copy of the frame.
void forwardToHost(benchmark::State& state) {
  const Bytes captured = kRtp.build();
  auto connection = std::make_unique<EmbeddedConnection>();
  EmbeddedConnection& host = *connection;
  const auto dissector = quietDissector(100, std::move(connection));
  const std::vector<Bytes> frames = framesOfRound();
  Bytes buffer(captured.size());
  compare(
      state, captured, [&] { return copyRound(frames); },
      [&] {
        const double seconds = forwardRound(*dissector, captured);
        while (host.receivePacket(reinterpret_cast<char*>(buffer.data())) > 0) {
        }
        return seconds;
      });
}
BENCHMARK(forwardToHost)->UseManualTime();

}  // namespace
