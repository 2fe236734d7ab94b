#include "TcpConnection.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <deque>
#include <memory>

#include "Loopback.h"
#include "TestLog.h"

namespace {

// What the next calls of send() do: take so many bytes, or fail with the negated errno. Empty: what the system does.
std::deque<int> sendScript;
std::atomic<int> longSleeps = 0;

template <typename Function>
Function* systemCall(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" ssize_t send(int sd, const void* buffer, size_t length, int flags) {
  static const auto real = systemCall<ssize_t(int, const void*, size_t, int)>("send");
  if (sendScript.empty()) return real(sd, buffer, length, flags);
  const int step = sendScript.front();
  sendScript.pop_front();
  if (step >= 0) return real(sd, buffer, static_cast<size_t>(step), flags);
  errno = -step;
  return -1;
}

// The pause of an outage is counted, not slept.
extern "C" int nanosleep(const timespec* time, timespec* rest) {
  static const auto real = systemCall<int(const timespec*, timespec*)>("nanosleep");
  if (time->tv_sec != 1 || time->tv_nsec != 0) return real(time, rest);
  ++longSleeps;
  const timespec instead{0, 10'000'000};
  return real(&instead, rest);
}

namespace {

constexpr const char* kHost = "127.0.0.1";

class Tcp : public testing::Test {
 protected:
  Tcp() { log.take(); }
  ~Tcp() override { sendScript.clear(); }

  void list() { dissector.addRtp(1, 1); }
  bool listed() { return dissector.isInRtpList(1, 1); }

  /// The recorder's end of a connection made by the first sends.
  Loopback established(TcpConnection& connection, const Loopback& listener) {
    EXPECT_TRUE(eventually([&] { return connection.sendPacket(data.data(), 100) == 100; }));
    Loopback peer = listener.accept();
    EXPECT_EQ(peer.read(100).size(), 100U);
    return peer;
  }

  TestLog log;
  SngDissector dissector;
  Bytes data = Bytes(60000, 0x42);
};

TEST_F(Tcp, AnOutageIsToldOnceAndForgetsEverything) {
  auto listener = std::make_unique<Loopback>(SOCK_STREAM, uint16_t{0});
  const uint16_t port = listener->port();
  listener.reset();
  const std::string recorder = std::string(" recorder 127.0.0.1:") + std::to_string(port);
  TcpConnection connection(kHost, port);
  connection.setObserver(&dissector.getLinkObserver());
  EXPECT_EQ(log.take(), std::vector<std::string>{"INFO Connecting to" + recorder});
  EXPECT_EQ(connection.sendPacket(nullptr, 5), 0);
  EXPECT_EQ(connection.sendPacket(data.data(), 0), 0);
  EXPECT_TRUE(log.take().empty());
  longSleeps = 0;
  for (int i = 0; i < 3; ++i) {
    list();
    produce(dissector, {1, 2, 3});
    EXPECT_EQ(connection.sendPacket(data.data(), 100), -1);
    EXPECT_FALSE(listed());
    EXPECT_TRUE(dissector.isIdle());
  }
  EXPECT_EQ(longSleeps, 3);
  EXPECT_EQ(log.count("INFO Connecting to" + recorder), 1);
  EXPECT_TRUE(log.contains("DEBUG TCP connect failed with errno=" + std::to_string(ECONNREFUSED)));
  EXPECT_EQ(log.count("DEBUG Dissector packet queue cleared. 1 packets dumped."), 3);
  EXPECT_EQ(log.count("INFO Tcp socket send buffer size=60000"), 1);
  SnifferRequest request;
  EXPECT_FALSE(connection.receiveRequest(request));

  // The recorder comes, goes, and comes back.
  for (int i = 0; i < 2; ++i) {
    log.take();
    Loopback again(SOCK_STREAM, port);
    Loopback peer = established(connection, again);
    list();
    EXPECT_EQ(connection.sendPacket(data.data(), 1), 1);
    EXPECT_TRUE(listed());
    EXPECT_EQ(log.count("INFO Connected to" + recorder), 1);
    peer.close();
    EXPECT_TRUE(eventually([&] { return !connection.receiveRequest(request) && !connection.isConnected(); }));
    EXPECT_EQ(log.count("INFO Connection to Recorder closed."), 1);
    again.close();
    EXPECT_EQ(connection.sendPacket(data.data(), 1), -1);
    EXPECT_EQ(log.count("INFO Connecting to" + recorder), 1);
  }
}

TEST_F(Tcp, AConnectInProgressIsCompletedByALaterSend) {
  const Loopback listener(SOCK_STREAM, 0, 0);
  TcpConnection first(kHost, listener.port());
  first.setObserver(&dissector.getLinkObserver());
  first.tcpConnect();
  TcpConnection second(kHost, listener.port());  // finds the backlog full
  second.setObserver(&dissector.getLinkObserver());
  EXPECT_EQ(second.sendPacket(data.data(), 100), -1);
  EXPECT_EQ(second.sendPacket(data.data(), 100), -1);
  EXPECT_TRUE(log.contains("DEBUG Connecting ..."));
  EXPECT_FALSE(second.isConnected());
  const Loopback peer = listener.accept();
  EXPECT_TRUE(eventually([&] { return second.sendPacket(data.data(), 100) == 100; }));
  EXPECT_EQ(listener.accept().read(100).size(), 100U);
}

TEST_F(Tcp, SendFailuresAreTreatedByKind) {
  const Bytes frame = [] {
    Bytes numbers;
    for (int i = 0; i < 100; ++i) numbers.push_back(static_cast<u_char>(i));
    return numbers;
  }();
  const auto part = [&](int from, int to) { return Bytes(frame.begin() + from, frame.begin() + to); };
  const auto join = [](std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& one : parts) append(all, one);
    return all;
  };
  const struct {
    std::deque<int> script;
    int result;
    bool stays;
    Bytes stream;
    std::vector<std::string> events;
  } cases[] = {
      {{-EINTR, 100},
       100,
       true,
       frame,
       {"WARN Send error=4", "WARN Interrupted while sending - will continue sending."}},
      {{-EMSGSIZE}, 0, true, {}, {"WARN Send error=90", "WARN Packet too large to send."}},
      {{-ENOBUFS}, 0, true, {}, {"WARN Send error=105", "WARN Packet too large to send."}},
      {{-EPIPE}, 0, false, {}, {"WARN Send error=32", "WARN Connection to recorder lost."}},
      {{-EIO}, 0, false, {}, {"WARN Send error=5", "WARN Connection to recorder not working"}},
      {{60, -EAGAIN},
       60,
       false,
       part(0, 60),
       {"WARN Sent nSent=60 bytes of 100", "WARN Send error=11", "WARN Can not send. Connection to recorder lost."}},
      // A rest that is sent in one piece does not count and is sent again.
      {{60, 40, 40, 30, -EAGAIN},
       90,
       false,
       join({part(0, 60), part(60, 100), part(60, 100), part(60, 90)}),
       {"WARN Sent nSent=60 bytes of 100", "WARN Sent nSent=30 bytes of 100", "WARN Send error=11",
        "WARN Can not send. Connection to recorder lost."}},
  };
  for (const auto& [script, result, stays, stream, expectedEvents] : cases) {
    const Loopback listener(SOCK_STREAM, 0);
    TcpConnection connection(kHost, listener.port());
    connection.setObserver(&dissector.getLinkObserver());
    const Loopback peer = established(connection, listener);
    list();
    log.take();
    sendScript = script;
    EXPECT_EQ(connection.sendPacket(const_cast<u_char*>(frame.data()), 100), result);
    EXPECT_TRUE(sendScript.empty());
    EXPECT_EQ(connection.isConnected(), stays);
    EXPECT_EQ(listed(), stays);
    std::vector<std::string> events = expectedEvents;
    if (!stays) events.emplace_back("INFO Connection to Recorder closed.");
    std::vector<std::string> seen = log.take();
    if (seen.size() > 1 && seen.back().starts_with("DEBUG")) seen.pop_back();
    EXPECT_EQ(seen, events);
    connection.closeConnection();
    EXPECT_EQ(peer.read(1000), stream) << events[0];
  }
}

TEST_F(Tcp, ARecorderThatDoesNotReadLosesTheConnection) {
  const Loopback listener(SOCK_STREAM, 0);
  TcpConnection connection(kHost, listener.port());
  connection.setObserver(&dissector.getLinkObserver());
  const Loopback peer = established(connection, listener);
  list();
  std::size_t sent = 0;
  int result = 1400;
  for (; result == 1400; sent += static_cast<std::size_t>(result)) result = connection.sendPacket(data.data(), 1400);
  EXPECT_TRUE(log.contains("WARN Can not send. Connection to recorder lost."));
  EXPECT_FALSE(connection.isConnected());
  EXPECT_FALSE(listed());
  EXPECT_GE(sent, 60000U);
  EXPECT_EQ(peer.read(100'000'000).size() / 1400, sent / 1400) << "what was counted arrives";
  established(connection, listener);
}

TEST_F(Tcp, CommandsSurviveEverySplit) {
  const Loopback listener(SOCK_STREAM, 0);
  TcpConnection connection(kHost, listener.port());
  connection.setObserver(&dissector.getLinkObserver());
  Loopback peer = established(connection, listener);
  SnifferRequest request;
  const auto next = [&] { return eventually([&] { return connection.receiveRequest(request); }); };
  const auto part = [](const Bytes& whole, int from, int to) {
    return Bytes(whole.begin() + from, whole.begin() + to);
  };
  const Bytes add = command(1, 0x0A000007, 40000);
  const SnifferRequest added(1, 0x0A000007, 40000);
  EXPECT_FALSE(connection.receiveRequest(request));

  Bytes two = add;
  append(two, command(2, 0xFF00FF01, 1));
  peer.write(two);
  EXPECT_TRUE(next());
  EXPECT_EQ(request, added);
  EXPECT_TRUE(log.contains("DEBUG rx from server cmd=1, ip=10.0.0.7, port=40000"));
  EXPECT_TRUE(connection.receiveRequest(request)) << "the second needs no new data";
  EXPECT_EQ(request, SnifferRequest(2, 0xFF00FF01, 1));
  EXPECT_FALSE(connection.receiveRequest(request));

  peer.write(part(add, 0, 4));
  EXPECT_FALSE(connection.receiveRequest(request));
  EXPECT_TRUE(next()) << "a command in pieces repeats the one before";
  EXPECT_EQ(request, SnifferRequest(2, 0xFF00FF01, 1));
  peer.write(part(add, 4, 7));
  EXPECT_TRUE(eventually([&] { return connection.receiveRequest(request) && request == added; }));
  EXPECT_FALSE(connection.receiveRequest(request));

  peer.write(command(3, 0x01020304, 5));
  EXPECT_TRUE(next());
  EXPECT_EQ(request, SnifferRequest(3, 0x0A000007, 40000)) << "a heartbeat leaves address and port alone";
  EXPECT_TRUE(log.contains("DEBUG Heartbeat request received"));

  // More than the ring holds, several times around it, in pieces that end inside commands.
  Bytes burst;
  for (uint16_t i = 0; i < 3000; ++i) append(burst, command(1, 0xC0000000U + i, i));
  peer.write(part(burst, 0, 7000));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  uint16_t taken = 0;
  const auto takeUntil = [&](uint16_t count) {
    return eventually([&] {
      while (taken < count && connection.receiveRequest(request)) {
        if (request == SnifferRequest(1, 0xC0000000U + taken, taken)) ++taken;
      }
      return taken == count;
    });
  };
  EXPECT_TRUE(takeUntil(1000));
  for (int from = 7000; from < 21000; from += 1009) peer.write(part(burst, from, std::min(from + 1009, 21000)));
  EXPECT_TRUE(takeUntil(3000));

  // The half of a command dies with its connection.
  peer.write(part(add, 0, 3));
  EXPECT_FALSE(connection.receiveRequest(request));
  connection.closeConnection();
  peer = established(connection, listener);
  peer.write(command(2, 9, 9));
  EXPECT_TRUE(next());
  EXPECT_EQ(request, SnifferRequest(2, 9, 9));
  peer.write(part(add, 0, 6));
  peer.close();
  EXPECT_TRUE(eventually([&] { return !connection.receiveRequest(request) && !connection.isConnected(); }));
}

}  // namespace
