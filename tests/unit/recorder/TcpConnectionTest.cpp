#include "recorder/TcpConnection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <deque>
#include <filesystem>
#include <iterator>

#include "support/Loopback.h"
#include "support/TestLog.h"

using namespace voip;

namespace {

// What the next calls of send() do: send so many bytes, or fail with the negated errno. Empty: the system's send().
std::deque<int> sendScript;
std::atomic<int> longSleeps = 0;

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

// Counts the pauses of an outage and shortens them.
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
  Tcp() {
    listener.limitSegments();
    connection.setStatistics(statistics);
    log.take();
  }
  ~Tcp() override { sendScript.clear(); }

  /// Sends 100 bytes and returns what happened to the link.
  LinkEvent eventOf(TcpConnection& to) {
    OutgoingFrame frame{data.data(), 100};
    return to.sendPackets({&frame, 1}).link;
  }

  /// Connects by sending. Returns the recorder's end of the connection.
  Loopback established(TcpConnection& to, const Loopback& at) {
    EXPECT_TRUE(eventually([&] { return to.sendPacket(data.data(), 100) == 100; }));
    Loopback peer = at.accept();
    EXPECT_EQ(peer.read(100).size(), 100U);
    return peer;
  }
  Loopback established() { return established(connection, listener); }

  TestLog log;
  Statistics statistics;
  Bytes data = Bytes(60000, 0x42);
  Loopback listener{SOCK_STREAM, 0};
  const std::string recorder = " recorder 127.0.0.1:" + std::to_string(listener.port());
  TcpConnection connection{kHost, listener.port()};
  SnifferRequest request;
};

TEST_F(Tcp, LogsAnOutageOnceAndReportsItForEachSend) {
  const std::uint16_t port = listener.port();
  listener.close();
  const TcpConnection another(kHost, port);
  EXPECT_EQ(log.take(), std::vector<std::string>{"INFO Connecting to" + recorder});
  EXPECT_EQ(connection.sendPacket(nullptr, 5), 0);
  EXPECT_EQ(connection.sendPacket(data.data(), 0), 0);
  EXPECT_TRUE(log.take().empty());
  longSleeps = 0;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(connection.sendPacket(data.data(), 100), -1);
    EXPECT_EQ(eventOf(connection), LinkEvent::kUnreachable);
  }
  EXPECT_EQ(longSleeps, 3) << "the caller of sendPackets() pauses itself";
  EXPECT_EQ(log.count("INFO Connecting to" + recorder), 1);
  EXPECT_TRUE(log.contains("DEBUG TCP connect failed with errno=" + std::to_string(ECONNREFUSED)));
  EXPECT_EQ(log.count("INFO Tcp socket send buffer size=60000"), 1);
  EXPECT_FALSE(connection.receiveRequest(request));

  // After the recorder has connected and disconnected, another outage begins.
  log.take();
  {
    Loopback again(SOCK_STREAM, port);
    established(connection, again).close();
    EXPECT_TRUE(eventually([&] { return !connection.receiveRequest(request) && !connection.isConnected(); }));
    EXPECT_EQ(log.count("INFO Connected to" + recorder), 1);
    EXPECT_EQ(log.count("INFO Connection to Recorder closed."), 1);
  }
  EXPECT_EQ(connection.sendPacket(data.data(), 1), -1);
  EXPECT_EQ(log.count("INFO Connecting to" + recorder), 1);
}

TEST_F(Tcp, ALaterSendCompletesAConnectInProgress) {
  const Loopback narrow(SOCK_STREAM, 0, 0);
  TcpConnection first(kHost, narrow.port());
  first.tcpConnect();
  TcpConnection second(kHost, narrow.port());  // finds the backlog full
  EXPECT_EQ(second.sendPacket(data.data(), 100), -1);
  EXPECT_EQ(second.sendPacket(data.data(), 100), -1);
  EXPECT_TRUE(log.contains("DEBUG Connecting ..."));
  EXPECT_FALSE(second.isConnected());
  const Loopback peer = narrow.accept();
  EXPECT_TRUE(eventually([&] { return second.sendPacket(data.data(), 100) == 100; }));
  EXPECT_EQ(narrow.accept().read(100).size(), 100U);
}

// The main loops of a Java process make connections again and again.
TEST_F(Tcp, LeavesNoSocketOfAnAttemptWhereItClosesThem) {
  const auto openFiles = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
  };
  const auto before = openFiles();
  for (const bool closes : {true, false}) {
    {
      TcpConnection unfinished(kHost, 1);
      unfinished.setClosesAttempts(closes);
      unfinished.tcpConnect();
    }
    EXPECT_EQ(openFiles() == before, closes);
  }
}

TEST_F(Tcp, KeepsConnectedWithoutAFrameAndReportsALossFirst) {
  const std::uint16_t port = Loopback(SOCK_STREAM, 0).port();  // closed again
  TcpConnection link(kHost, port);
  SnifferRequest command{};
  const auto keep = [&] {
    EXPECT_EQ(link.keepConnected(), LinkEvent::kNone);
    return link.isConnected();
  };
  EXPECT_FALSE(keep() || keep());
  for (int times = 0; times < 2; ++times) {
    Loopback peer(SOCK_STREAM, port);
    EXPECT_TRUE(eventually(keep));
    peer.accept().close();
    EXPECT_TRUE(eventually([&] { return !link.receiveRequest(command) && !link.isConnected(); }));
    EXPECT_EQ(link.keepConnected(), LinkEvent::kLost);
  }
  EXPECT_FALSE(keep());
}

/// One send of a group of 100-byte frames, and its expected results.
struct ScriptedSend {
  int timeout;  ///< for sending, in milliseconds
  int frames;
  std::deque<int> script;
  std::vector<int> results;                 ///< `sent` of each frame dealt with
  std::vector<std::pair<int, int>> stream;  ///< ranges of the group's bytes that the recorder receives
  std::string events;
};

const std::string kClosed = "INFO Connection to Recorder closed.;";

class TcpSend : public Tcp {
 protected:
  void expect(const ScriptedSend& scripted) {
    SCOPED_TRACE(testing::PrintToString(scripted.script));
    TcpConnection sender(kHost, listener.port());
    sender.setStatistics(statistics);
    sender.setSendTimeout(std::chrono::milliseconds(scripted.timeout));
    const Loopback peer = established(sender, listener);
    log.take();
    Bytes bytes;
    for (int i = 0; i < 300; ++i) bytes.push_back(static_cast<std::uint8_t>(i));
    std::vector<OutgoingFrame> group;
    for (int i = 0; i < scripted.frames; ++i) group.push_back({bytes.data() + 100 * i, 100, -7});
    sendScript = scripted.script;
    const SendResult result = sender.sendPackets(group);
    EXPECT_EQ(result.dealtWith, scripted.results.size());
    for (std::size_t i = 0; i < scripted.results.size(); ++i) EXPECT_EQ(group[i].sent, scripted.results[i]);
    EXPECT_TRUE(sendScript.empty());
    const bool stays = !scripted.events.ends_with(kClosed);
    EXPECT_EQ(sender.isConnected(), stays);
    EXPECT_EQ(result.link, stays ? LinkEvent::kNone : LinkEvent::kLost);
    std::string seen;
    for (const std::string& event : log.take()) seen += event.starts_with("DEBUG") ? "" : event + ";";
    EXPECT_EQ(seen, scripted.events);
    sender.closeConnection();
    Bytes expected;
    for (const auto& [from, to] : scripted.stream) {
      expected.insert(expected.end(), bytes.begin() + from, bytes.begin() + to);
    }
    EXPECT_EQ(peer.read(1000), expected);
  }
};

TEST_F(TcpSend, HandlesEachKindOfShortAndFailedSend) {
  const std::string short60 = "WARN Sent nSent=60 bytes of 100;", short30 = "WARN Sent nSent=30 bytes of 100;";
  const std::string tooLarge = "WARN Packet too large to send.;";
  const std::string interrupted = "WARN Send error=4;WARN Interrupted while sending - will continue sending.;";
  const std::string full = "WARN Send error=11;WARN Can not send. Connection to recorder lost.;" + kClosed;
  const std::string gone = "WARN Send error=32;WARN Connection to recorder lost.;" + kClosed;
  const ScriptedSend cases[] = {
      {0, 1, {-EINTR, 100}, {100}, {{0, 100}}, interrupted},
      {0, 1, {-EMSGSIZE}, {0}, {}, "WARN Send error=90;" + tooLarge},
      {0, 1, {-EPIPE}, {0}, {}, gone},
      {0, 1, {-EIO}, {0}, {}, "WARN Send error=5;WARN Connection to recorder not working;" + kClosed},
      {0, 1, {60, -EAGAIN}, {60}, {{0, 60}}, short60 + full},
      // The rest of a frame that is sent in one piece does not count and is sent again.
      {0, 1, {60, 40, 40, 30, -EAGAIN}, {90}, {{0, 100}, {60, 100}, {60, 90}}, short60 + short30 + full},
      {0, 3, {160, 40, 30, -EAGAIN}, {100, 90}, {{0, 200}, {160, 190}}, short60 + short30 + full},
      {0, 3, {100, -ENOBUFS}, {100, 0}, {{0, 100}}, "WARN Send error=105;" + tooLarge},
      {0, 3, {-EINTR, 100, 200}, {100, 100, 100}, {{0, 300}}, interrupted},
      // With a time-out it waits for space, which there is, and sends each byte once. The frames after the wait go back
      // to the caller.
      {9000, 3, {160, -EAGAIN, 30, -EAGAIN, 10}, {100, 100}, {{0, 200}}, ""},
      {9000, 3, {160, 40, 100}, {100, 100, 100}, {{0, 300}}, ""},
      {9000, 3, {200, -EPIPE}, {100, 100, 0}, {{0, 200}}, gone},
  };
  for (const ScriptedSend& scripted : cases) expect(scripted);
  EXPECT_EQ(statistics.sendWaits, 2U);
  EXPECT_EQ(statistics.framesWaited, 4U);
}

/// A recorder that reads slowly or not at all.
class TcpSlowRecorder : public Tcp {
 protected:
  static constexpr std::size_t kFrames = 40;

  TcpSlowRecorder() {
    for (std::size_t i = 0; i < kFrames; ++i) {
      frames[i][0] = 60000 >> 8;
      frames[i][1] = 60000 & 0xFF;
      frames[i][15] = static_cast<std::uint8_t>(i);
    }
  }

  /// Sends all frames unless the connection is lost. Returns the number of frames dealt with.
  std::size_t sendAll() {
    std::vector<OutgoingFrame> group;
    for (Bytes& frame : frames) group.push_back({frame.data(), 60000});
    std::size_t done = 0;
    do {  // after a wait, frames that have not begun go back to the caller
      done += connection.sendPackets(std::span(group).subspan(done)).dealtWith;
    } while (done < kFrames && connection.isConnected());
    return done;
  }

  std::vector<Bytes> frames = std::vector<Bytes>(kFrames, Bytes(60000, 2));
};

TEST_F(TcpSlowRecorder, IsLostWithoutATimeOut) {
  const Loopback peer = established();
  EXPECT_LT(sendAll(), kFrames);
  EXPECT_TRUE(log.contains("WARN Can not send. Connection to recorder lost."));
  EXPECT_FALSE(connection.isConnected());
}

TEST_F(TcpSlowRecorder, GetsWholeFramesAndReplies) {
  connection.setSendTimeout(std::chrono::minutes(1));
  Loopback peer = established();
  std::thread sender([&] { EXPECT_EQ(sendAll(), kFrames); });
  peer.write(command(1, 5, 5));
  EXPECT_TRUE(eventually([&] { return connection.receiveRequest(request); }));
  Bytes heartbeat = {0, 15, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  OutgoingFrame reply{heartbeat.data(), 15};
  EXPECT_EQ(connection.sendReply(reply), LinkEvent::kNone);
  EXPECT_EQ(reply.sent, 15);
  std::vector<Bytes> received;
  while (received.size() <= kFrames) received.push_back(peer.readFrame());
  sender.join();
  EXPECT_EQ(std::erase(received, heartbeat), 1U) << "between the frames";
  EXPECT_EQ(received, frames);

  // A frame in which the stream ends goes back to the caller, which sends the whole frame on the next stream.
  std::size_t done = 0;
  std::thread interrupted([&] { done = sendAll(); });
  peer.read(100'000);
  connection.closeConnection();  // as receiveRequest() does at the end of the stream
  interrupted.join();
  ASSERT_LT(done, kFrames);
  std::thread retrying(
      [&] { EXPECT_TRUE(eventually([&] { return connection.sendPacket(frames[done].data(), 60000) == 60000; })); });
  peer = listener.accept();
  EXPECT_EQ(peer.readFrame(), frames[done]);
  retrying.join();
}

TEST_F(TcpSlowRecorder, IsNotWaitedForAfterTheEnd) {
  connection.setSendTimeout(std::chrono::minutes(1));
  Loopback peer = established();
  for (const bool ofProgram : {false, true}) {
    std::thread blocked([&] { EXPECT_LT(sendAll(), kFrames); });
    peer.read(1);
    ofProgram ? connection.interrupt() : connection.closeConnection();
    blocked.join();
    EXPECT_FALSE(connection.isConnected());
    if (!ofProgram) peer = established();
  }
  connection.stopConnecting();
  EXPECT_EQ(eventOf(connection), LinkEvent::kUnreachable);
  EXPECT_FALSE(connection.isConnected());
}

class TcpCommands : public Tcp {
 protected:
  bool next() {
    return eventually([&] { return connection.receiveRequest(request); });
  }
  Bytes part(int from, int to) const { return {add.begin() + from, add.begin() + to}; }

  Loopback peer = established();
  const Bytes add = command(1, 0x0A000007, 40000);
  const SnifferRequest added{1, 0x0A000007, 40000}, removed{2, 0xFF00FF01, 1};
};

TEST_F(TcpCommands, AreDecodedWhateverTheirSplit) {
  EXPECT_FALSE(connection.receiveRequest(request));

  Bytes two = add;
  append(two, command(2, 0xFF00FF01, 1));
  peer.write(two);
  EXPECT_TRUE(next());
  EXPECT_EQ(request, added);
  EXPECT_TRUE(log.contains("DEBUG rx from server cmd=1, ip=10.0.0.7, port=40000"));
  EXPECT_TRUE(connection.receiveRequest(request)) << "the second needs no new data";
  EXPECT_EQ(request, removed);
  EXPECT_FALSE(connection.receiveRequest(request));

  peer.write(part(0, 4));
  EXPECT_FALSE(connection.receiveRequest(request));
  EXPECT_TRUE(next()) << "a command in pieces repeats the one before";
  EXPECT_EQ(request, removed);
  peer.write(part(4, 7));
  EXPECT_TRUE(eventually([&] { return connection.receiveRequest(request) && request == added; }));
  EXPECT_FALSE(connection.receiveRequest(request));

  peer.write(command(3, 0x01020304, 5));
  EXPECT_TRUE(next());
  EXPECT_EQ(request, SnifferRequest(3, 0x0A000007, 40000)) << "a heartbeat leaves address and port alone";
  EXPECT_TRUE(log.contains("DEBUG Heartbeat request received"));
}

TEST_F(TcpCommands, WithIpv6AddressesAreDecodedWhateverTheirSplit) {
  const Bytes octets = {0x20, 1, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5};
  const IpAddress address = IpAddress::read(octets.data());
  Bytes all = add;
  for (const std::uint8_t code : {4, 5}) append(all, code, 1), append(all, octets), append(all, 40000, 2);
  append(all, command(2, 0xFF00FF01, 1));
  append(all, command(9));
  const std::vector<SnifferRequest> longer = {added, {4, address, 40000}, {5, address, 40000}, removed, {9, 0, 0}};
  std::vector<SnifferRequest> shorter;  // each of 7 bytes, and 3 bytes that wait
  for (std::size_t at = 0; at + 7 <= all.size(); at += 7) shorter.push_back(SnifferRequest::fromWire(&all[at]));
  for (const bool isOn : {false, true}) {
    for (std::size_t cut = 1; cut < all.size(); cut += isOn ? 1 : 10) {
      SCOPED_TRACE(cut);
      connection.closeConnection();
      peer = established();
      connection.setIpv6(isOn);
      std::vector<SnifferRequest> taken;
      const auto take = [&](std::size_t from, std::size_t to, std::size_t commands) {
        peer.write({all.begin() + static_cast<std::ptrdiff_t>(from), all.begin() + static_cast<std::ptrdiff_t>(to)});
        const auto& expected = isOn ? longer : shorter;
        EXPECT_TRUE(eventually([&] {
          const SnifferRequest none(0xFFFF, 0, 0);
          request = none;
          if (connection.receiveRequest(request) && request != none) taken.push_back(request);
          return taken.size() >= commands;
        }));
        EXPECT_TRUE(std::equal(taken.begin(), taken.end(), expected.begin()));
        EXPECT_EQ(taken.size(), commands);
      };
      const std::size_t ends[] = {7, 26, 45, 52, 59};
      const auto whole = static_cast<std::size_t>(std::upper_bound(ends, std::end(ends), cut) - ends);
      take(0, cut, isOn ? whole : cut / 7);
      take(cut, all.size(), isOn ? 5 : all.size() / 7);
    }
  }
  EXPECT_TRUE(log.contains("DEBUG rx from server cmd=4, ip=2001:db8::5, port=40000"));
}

TEST_F(TcpCommands, AreNotCompletedByAnotherConnection) {
  peer.write(part(0, 3));
  EXPECT_FALSE(connection.receiveRequest(request));
  connection.closeConnection();
  peer = established();
  peer.write(command(2, 0xFF00FF01, 1));
  EXPECT_TRUE(next());
  EXPECT_EQ(request, removed);
  peer.write(part(0, 6));
  peer.close();
  EXPECT_TRUE(eventually([&] { return !connection.receiveRequest(request) && !connection.isConnected(); }));
}

TEST_F(Tcp, OnlyCommandsWakeTheCommandReader) {
  struct Counted : TcpConnection {
    using TcpConnection::TcpConnection;
    void awaitRequest() override {
      ++sleeps;
      TcpConnection::awaitRequest();
    }
    std::atomic<int> sleeps = 0;
  } counted(kHost, listener.port());
  log.setLevel(log4cxx::Level::getOff());
  std::vector<std::atomic<bool>> carriedOut(10000);
  std::atomic<std::size_t> count = 0;
  std::atomic<bool> ended = false;
  std::thread thread([&] {
    for (SnifferRequest add; !ended; counted.awaitRequest()) {
      while (counted.receiveRequest(add)) count += !carriedOut[add.rtpAddr].exchange(true);
    }
  });
  for (const u_int from : {0U, 5000U}) {  // each half on a separate connection
    Bytes adds;
    for (u_int i = from; i < from + 5000; ++i) append(adds, command(1, i));
    Loopback peer = established(counted, listener);
    peer.write(adds);
    EXPECT_TRUE(eventually([&] { return count == from + 5000; }));
    peer.close();
    EXPECT_TRUE(eventually([&] { return !counted.isConnected(); }));
  }
  ended = true;
  counted.interrupt();
  thread.join();
  EXPECT_LT(counted.sleeps, 1000);
}

}  // namespace
