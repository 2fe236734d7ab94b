// No frame that the recorder wants is lost between capture and connection unless it is counted as lost.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <tuple>

#include "capture/Sniffer.h"
#include "support/Frames.h"
#include "support/Loopback.h"
#include "support/TestLog.h"

using namespace voip;

namespace {

/// A recorder that can become unreachable.
struct FlakyConnection : RecordingConnection {
  using RecordingConnection::RecordingConnection;

  SendResult sendPackets(std::span<OutgoingFrame> frames) override {
    for (std::size_t i = 0; i < frames.size(); ++i) {
      if (left-- > 0) {
        frames[i].sent = sendPacket(frames[i].bytes, frames[i].length);
        if (endsAfterEachFrame) return {1};
        continue;
      }
      ++attempts;
      while (holds) std::this_thread::yield();
      frames[i].sent = -1;
      return {i + 1, LinkEvent::kUnreachable};
    }
    return {frames.size()};
  }

  std::size_t getRoom() override { return room; }

  std::atomic<std::size_t> room = SIZE_MAX;
  std::atomic<int> left = 1 << 30;  ///< number of frames that it still takes
  std::atomic<int> attempts = 0;
  std::atomic<bool> holds = false;               ///< an attempt to connect does not end
  std::atomic<bool> endsAfterEachFrame = false;  ///< as after a wait for the recorder
};

constexpr u_int kPhone = 0x0A000002;

Bytes rtp(std::uint8_t number, std::uint8_t first = 0x80) {
  Bytes payload = {first, 8, 0, number};
  payload.resize(20, number);
  return payload;
}

Bytes sip(const std::string& id) {
  return bytes("BYE sip:" + id + " SIP/2.0\r\n\r\n");
}

/// The engine with settings, its consumer on a separate thread, and a recorder in the test: alone, or the first of two.
/// The second one connects and never reads. All over IPv4 or over IPv6.
class Evidence : public testing::TestWithParam<std::tuple<int, bool>> {
 protected:
  void start(Settings settings) {
    settings.ipv6 = isIpv6;
    if (std::get<0>(GetParam()) == 2) settings.moreRecorders = "127.0.0.1:" + std::to_string(second.port());
    dissector = SngDissector::dft();
    dissector->setSettings(settings);
    dissector->setSniffer(&engine);
    auto made = std::make_unique<FlakyConnection>(media);
    connection = made.get();
    dissector->setConnections(std::move(made), nullptr);
    consumer = std::thread([this] { engine.startSniffing(); });
    EXPECT_TRUE(eventually([] { return !Sniffer::getEndMain(); }));
  }
  void stop() {
    engine.stopSniffing();
    if (consumer.joinable()) consumer.join();
  }
  ~Evidence() override { stop(); }

  void capture(const Bytes& payload, std::uint16_t port = 5000) {
    produce(*dissector, Frame{.dstPort = port, .payload = payload, .ipv6 = isIpv6}.build());
    ++captured;
  }
  /// Carries out a command of the recorder.
  void command(std::uint16_t code, std::uint16_t port) {
    const Bytes address = Frame{.ipv6 = true}.address(kPhone);
    const auto ipv6Code = static_cast<u_short>(code + 3);
    media.commands.push_back(isIpv6 ? SnifferRequest(ipv6Code, IpAddress::read(address.data()), port)
                                    : SnifferRequest(code, kPhone, port));
    dissector->checkCommand();
  }
  void add(std::uint16_t port = 5000) { command(1, port); }
  void remove(std::uint16_t port = 5000) { command(2, port); }
  void settle() {
    EXPECT_TRUE(eventually([&] { return dissector->isIdle(); }));
  }
  /// Returns a letter and a number for each frame that the recorder has received: S for SIP, R for RTP, and "t" for a
  /// capture time.
  std::string received() const {
    std::string all;
    for (const Bytes& frame : media.frames) {
      const int protocol = frame[2] - (isIpv6 ? 0x40 : 0);
      all += protocol == 5   ? "t"
             : protocol == 1 ? "S" + std::string(1, static_cast<char>(frame[headerLength + 8]))
                             : "R" + std::to_string(frame[headerLength + 3]);
      all += ' ';
    }
    return all;
  }
  /// Returns the microseconds in a frame that announces a capture time.
  std::int64_t timeIn(const Bytes& frame) const {
    std::int64_t time = 0;
    for (std::size_t i = headerLength; i < headerLength + 8; ++i) time = time << 8 | frame.at(i);
    return time;
  }
  /// Expects that each captured frame is counted once.
  void expectSum() {
    const Statistics now = dissector->getStatistics();
    EXPECT_EQ(now.sipForwarded + now.rtpForwarded + now.udpDropped + now.queueDiscarded + now.notSent +
                  now.lookBackWaiting + now.lookBackOverflow + now.queueLimitMedia + now.queueLimitSignalling +
                  now.queueLength,
              captured);
  }

  const bool isIpv6 = std::get<1>(GetParam());
  const std::size_t headerLength = isIpv6 ? 39 : 15;
  TestLog log;
  Loopback second{SOCK_STREAM, 0};
  RecordingConnection::Record media;
  FlakyConnection* connection = nullptr;
  Sniffer engine;
  SngDissector* dissector = nullptr;
  std::thread consumer;
  std::uint64_t captured = 0;
};

TEST_P(Evidence, SendsKeptMediaFirstInOrderAndOnce) {
  Settings settings;
  settings.lookBack = 60'000;
  start(settings);
  capture(rtp(1));
  capture(rtp(9), 5002);
  capture(rtp(9, 0x00));  // STUN
  capture(rtp(9, 0x16));  // DTLS
  capture(Bytes(3, 0x80));
  capture(rtp(2, 0x81));
  settle();
  EXPECT_EQ(received(), "");
  add();  // no packet follows
  EXPECT_TRUE(eventually([&] { return dissector->getStatistics().rtpForwarded == 2; }));
  capture(rtp(3));
  add();
  capture(rtp(4));
  EXPECT_TRUE(eventually([&] { return dissector->getStatistics().rtpForwarded == 4; }));
  EXPECT_EQ(received(), "R1 R2 R3 R4 ");
  remove();
  capture(rtp(5));
  settle();
  expectSum();
  EXPECT_EQ(dissector->getStatistics().lookBackWaiting, 2U);
}

TEST_P(Evidence, AnAddDuringAStreamLeavesNoGap) {
  log.setLevel(log4cxx::Level::getOff());
  Settings settings;
  settings.lookBack = 60'000;
  start(settings);
  constexpr int kStreams = 200;
  std::thread adding([&] {
    for (std::uint16_t port = 0; port < kStreams; ++port) add(port);
  });
  for (std::uint8_t number = 0; number < 100; ++number) {
    for (std::uint16_t port = 0; port < kStreams; ++port) capture(rtp(number), port);
  }
  adding.join();
  EXPECT_TRUE(eventually([&] { return dissector->getStatistics().rtpForwarded == captured; }));
  stop();
  std::vector<int> next(kStreams);
  for (const Bytes& frame : media.frames) {
    const std::size_t port = headerLength / 2;
    EXPECT_EQ(int{frame[headerLength + 3]}, next[frame[port] << 8 | frame[port + 1]]++);
  }
}

TEST_P(Evidence, LimitsTheMemoryOfTheLookBack) {
  Settings settings;
  settings.lookBack = 60'000;
  settings.lookBackMemory = 1;
  start(settings);
  for (int i = 0; i < 3000; ++i) capture(Bytes(1000, 0x80), static_cast<std::uint16_t>(i));
  settle();
  EXPECT_GT(dissector->getStatistics().lookBackOverflow, 1500U);
  EXPECT_GT(dissector->getStatistics().lookBackWaiting, 700U);
  expectSum();
}

TEST_P(Evidence, SendsMissedSignallingAfterAnOutageAndMediaAfterAnAdd) {
  Settings settings;
  settings.lookBack = 60'000;
  start(settings);
  add();
  capture(sip("1"));
  capture(rtp(1));
  settle();
  connection->left = 0;
  capture(rtp(2));
  capture(sip("2"));
  capture(rtp(3));
  capture(sip("3"));
  settle();
  EXPECT_EQ(received(), "S1 R1 ");
  connection->left = 1 << 30;
  capture(sip("4"));
  EXPECT_TRUE(eventually([&] { return dissector->getStatistics().sipForwarded == 4; }));
  EXPECT_EQ(received(), "S1 R1 S2 S3 S4 ");
  // A connection begins with the signalling, even when the recorder asks for media at once.
  connection->left = 0;
  connection->attempts = 0;
  capture(sip("5"));
  EXPECT_TRUE(eventually([&] { return connection->attempts > 1; }));
  connection->left = 1 << 30;
  add();
  EXPECT_TRUE(eventually([&] { return dissector->getStatistics().rtpForwarded == 3; }));
  EXPECT_EQ(received(), "S1 R1 S2 S3 S4 S5 R2 R3 ");
  expectSum();
}

TEST_P(Evidence, SendsKeptMediaAsTheRecorderTakesItAndKeepsItInAnOutage) {
  Settings settings;
  settings.lookBack = 60'000;
  start(settings);
  const auto forwarded = [&] { return dissector->getStatistics().rtpForwarded.load(); };
  for (std::uint8_t number = 0; number < 9; ++number) capture(rtp(number));
  settle();
  connection->room = 0;
  add();
  capture(rtp(9));
  capture(sip("1"));
  settle();
  EXPECT_EQ(received(), "S1 ") << "signalling does not wait for media";
  connection->left = 3;
  connection->room = 1;  // a frame at a time
  EXPECT_TRUE(eventually([&] { return connection->attempts > 0; }));
  connection->left = 1 << 30;
  capture(rtp(10));
  settle();
  EXPECT_EQ(forwarded(), 3U) << "a lost recorder has to ask again";
  add();
  capture(rtp(11));
  EXPECT_TRUE(eventually([&] { return forwarded() == 12; }));
  EXPECT_EQ(received(), "S1 R0 R1 R2 R3 R4 R5 R6 R7 R8 R9 R10 R11 ");
  expectSum();
}

TEST_P(Evidence, ChecksTheRestOfAGroupAgainAfterALoss) {
  start({});
  add();
  connection->left = 30;
  for (std::uint8_t i = 0; i < 100; ++i) capture(rtp(i));
  settle();
  EXPECT_EQ(media.frames.size(), 30U);
  const Statistics now = dissector->getStatistics();
  EXPECT_EQ(now.notSent, 1U);
  EXPECT_EQ(now.udpDropped + now.queueDiscarded, 69U) << "their destination is no longer on the list";
  expectSum();
  // Each attempt to connect may take a second, so all frames after the first are dropped, wherever they wait.
  connection->attempts = 0;
  connection->holds = true;
  for (std::uint8_t i = 0; i < 100; ++i) capture(sip("1"));
  connection->holds = false;
  settle();
  EXPECT_LT(connection->attempts, 50);
  expectSum();
}

TEST_P(Evidence, SendsTheCaptureTimeBeforeALateFrame) {
  Settings settings;
  settings.captureTime = true;
  start(settings);
  add();
  const Bytes frame = Frame{.payload = rtp(7), .ipv6 = isIpv6}.build();
  pcap_pkthdr header = captureHeader(frame);
  header.ts = {1'700'000'000, 123'456};
  SniffedPacket packet{nullptr, &header, frame.data()};
  dissector->producePacket(packet);
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  header.ts = {now.tv_sec + 60, 0};
  dissector->producePacket(packet);
  settle();
  EXPECT_EQ(received(), "t R7 R7 ");
  // An old time stamp does not make a replayed frame late; only a busy machine does, and not each time.
  constexpr int kReplayed = 20;
  header.ts = {1'700'000'000, 123'456};
  packet.replayShift = CaptureStamp::now();
  for (int i = 0; i < kReplayed; ++i) {
    dissector->producePacket(packet);
    settle();
  }
  captured = 2 + kReplayed;
  EXPECT_LT(media.frames.size(), captured + kReplayed);
  const Bytes time = media.frames[0];
  ASSERT_EQ(time.size(), headerLength + 8);
  EXPECT_EQ(time[1], time.size());
  EXPECT_TRUE(std::equal(time.begin() + 3, time.end() - 8, media.frames[1].begin() + 3));
  EXPECT_EQ(timeIn(time), 1'700'000'000'123'456);
  expectSum();
}

TEST_P(Evidence, AnnouncesAReplayedFrameWithTheTimeOfTheReplay) {
  Settings settings;
  settings.captureTime = true;
  settings.lookBack = 60'000;
  start(settings);
  const Bytes frame = Frame{.payload = rtp(7), .ipv6 = isIpv6}.build();
  const pcap_pkthdr header = captureHeader(frame);  // 1970
  SniffedPacket packet{nullptr, &header, frame.data()};
  packet.replayShift = CaptureStamp::now();
  const std::int64_t before = CaptureStamp::now();
  dissector->producePacket(packet);
  EXPECT_TRUE(eventually([&] { return CaptureStamp::now() > before + 10 * CaptureTimeFrame::kLate; }));
  add();
  EXPECT_TRUE(eventually([&] { return dissector->getStatistics().rtpForwarded == 1; }));
  stop();
  ASSERT_EQ(received(), "t R7 ");
  EXPECT_GE(timeIn(media.frames[0]), before);
}

TEST_P(Evidence, PutsNothingBetweenACaptureTimeAndItsFrame) {
  Settings settings;
  settings.captureTime = true;
  settings.lookBack = 60'000;
  start(settings);
  connection->endsAfterEachFrame = true;
  constexpr int kKept = 20;
  for (std::uint8_t number = 0; number < kKept; ++number) capture(rtp(number));
  settle();
  const Bytes timely = Frame{.payload = sip("1"), .ipv6 = isIpv6}.build();
  pcap_pkthdr header = captureHeader(timely);
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  header.ts = {now.tv_sec + 60, 0};
  SniffedPacket packet{nullptr, &header, timely.data()};
  connection->room = 1;  // a kept frame at a time, and signalling between them
  add();
  for (int i = 0; i < 50; ++i, ++captured) dissector->producePacket(packet);
  EXPECT_TRUE(eventually([&] { return dissector->getStatistics().rtpForwarded == kKept; }));
  settle();
  const std::string all = received();
  EXPECT_EQ(std::count(all.begin(), all.end(), 't'), kKept);
  EXPECT_EQ(all.find("t S"), std::string::npos) << all;
  for (std::uint8_t number = 0; number < kKept; ++number) capture(rtp(number));  // late ones, not kept
  EXPECT_TRUE(eventually([&] { return dissector->getStatistics().rtpForwarded == 2 * kKept; }));
  settle();
  EXPECT_EQ(received().find("t t"), std::string::npos) << "a capture time is sent once";
  expectSum();
}

TEST_P(Evidence, MediaThatWasAskedForDoesNotExpire) {
  Settings settings;
  settings.lookBack = 200;
  start(settings);
  connection->room = 0;
  capture(rtp(1));
  settle();
  add();
  for (std::uint8_t number = 2; number < 50; ++number) {
    capture(rtp(number));
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  settle();
  EXPECT_EQ(received(), "");
  connection->room = SIZE_MAX;
  EXPECT_TRUE(eventually([&] { return dissector->getStatistics().rtpForwarded == captured; }));
  capture(rtp(1), 5002);  // nobody waits now, so this one expires
  EXPECT_TRUE(eventually([&] { return dissector->getStatistics().udpDropped == 1; }));
  expectSum();
}

INSTANTIATE_TEST_SUITE_P(Recorders, Evidence, testing::Combine(testing::Values(1, 2), testing::Bool()));

class QueueLimit : public testing::Test {
 protected:
  QueueLimit() {
    queue.setLimit(1 << 20);
    signalling.resize(1000);
  }
  void push(const Bytes& payload) {
    const Bytes frame = Frame{.payload = payload}.build();
    const pcap_pkthdr header = captureHeader(frame);
    queue.push({nullptr, &header, frame.data()}, 8192,
               payload[0] == 0x80 ? PacketQueue::Kind::kMedia : PacketQueue::Kind::kSignalling);
  }

  TestLog log;
  Statistics statistics;
  PacketQueue queue{statistics};
  const Bytes media = Bytes(1000, 0x80);
  Bytes signalling = bytes("INVITE sip:a");
};

TEST_F(QueueLimit, LeavesSpaceForSignallingWhenFramesWaitElsewhere) {
  const std::atomic<std::size_t> elsewhere = (1 << 20) / 4 * 3;
  queue.setOthersWaiting(&elsewhere);
  for (int i = 0; i < 100; ++i) {
    push(media);
    push(signalling);
  }
  EXPECT_EQ(statistics.queueLimitMedia, 100U);
  EXPECT_EQ(queue.size(), 100U);
}

TEST_F(QueueLimit, DropsTheNewestMediaAndSignallingLast) {
  for (int i = 0; i < 1000; ++i) push(media);
  const auto fits = queue.size();
  EXPECT_EQ(fits + statistics.queueLimitMedia, 1000U);
  EXPECT_LE(fits * 1042, 1U << 20);
  for (int i = 0; i < 500; ++i) push(signalling);
  EXPECT_EQ(queue.size(), fits) << "the newest media is dropped";
  EXPECT_EQ(statistics.queueLimitSignalling, 0U);
  for (int i = 0; i < 500; ++i) push(signalling);
  EXPECT_EQ(statistics.queueLimitMedia, 1000U);
  EXPECT_EQ(queue.size() + statistics.queueLimitSignalling, 1000U);
  EXPECT_EQ(log.count("WARN The queue has reached its limit of 1 MB: the newest frames are lost, media first, until "
                      "the recorder is faster again"),
            1);

  std::uint64_t last = 0;
  std::size_t frames = 0;
  while (queue.size() != 0 && queue.takeBatch(std::chrono::milliseconds(0))) {
    for (QueuedPacket* packet = queue.next(); packet != nullptr; packet = queue.next(), ++frames) {
      EXPECT_GE(packet->number, last);
      last = packet->number;
      if (frames == 100) {
        push(media);  // to the other side, as the last frame
      }
    }
  }
  EXPECT_GT(frames, 800U);
  push(media);
  EXPECT_EQ(log.count("WARN The queue is below its limit again; lost since the start for want of room: " +
                      std::to_string(statistics.queueLimitMedia) + " media and " +
                      std::to_string(statistics.queueLimitSignalling) + " other frames"),
            1);
}

}  // namespace
