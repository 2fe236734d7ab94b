#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <random>
#include <thread>

#include "capture/Sniffer.h"
#include "recorder/TcpConnection.h"
#include "support/Frames.h"
#include "support/Loopback.h"
#include "support/TestLog.h"

using namespace voip;

namespace {

TEST(Commands, AreCarriedOutInOrder) {
  TestLog log;
  RecordingConnection::Record media;
  SngDissector dissector;
  dissector.setConnections(std::make_unique<RecordingConnection>(media), nullptr);
  media.commands = {{1, 5, 7000}, {9, 6, 7000}, {1, 7, 7000}, {3, 7, 7000}, {2, 5, 7000}, {0, 0, 0}, {259, 8, 1}};
  dissector.checkCommand();
  EXPECT_TRUE(media.commands.empty());
  EXPECT_FALSE(dissector.isInRtpList(5, 7000));
  EXPECT_FALSE(dissector.isInRtpList(6, 7000));
  EXPECT_TRUE(dissector.isInRtpList(7, 7000));
  ASSERT_EQ(media.frames.size(), 1U);
  EXPECT_EQ(media.frames[0], Bytes({0, 15, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(log.take().size(), 4U) << "two adds, a heartbeat and a removal; unknown codes are silent";
}

TEST(Commands, TheReaderEndsWhileMoreArrive) {
  struct Endless : RecordingConnection {
    using RecordingConnection::RecordingConnection;
    bool receiveRequest(SnifferRequest&) override {
      ++calls;
      return true;
    }
    std::atomic<int> calls = 0;
  };
  TestLog log;
  RecordingConnection::Record media;
  SngDissector dissector;
  auto endless = std::make_unique<Endless>(media);
  Endless& connection = *endless;
  dissector.setConnections(std::move(endless), nullptr);
  dissector.startCmdReaderThread();
  EXPECT_TRUE(log.contains("INFO Command reader thread created cmdReaderThread"));
  EXPECT_TRUE(eventually([&] { return connection.calls > 0; }));
  dissector.signalEnd();
  EXPECT_TRUE(dissector.getTerminate());
  ASSERT_NE(dissector.getCmdReaderThread(), nullptr);
  EXPECT_EQ(pthread_join(*dissector.getCmdReaderThread(), nullptr), 0);
  dissector.cmdReaderJoined();
}

TEST(Dissector, TheSecondDestroysTheFirst) {
  TestLog log;
  RecordingConnection::Record media, signalling;
  auto* first = new SngDissector;
  EXPECT_EQ(SngDissector::dft(), first);
  EXPECT_EQ(first->getServerPortMedia(), 6000);
  EXPECT_EQ(first->getServerPortSig(), 6000);
  EXPECT_EQ(first->getServerNameMedia(), nullptr);
  first->setConnections(std::make_unique<RecordingConnection>(media),
                        std::make_unique<RecordingConnection>(signalling));
  first->closeConnection();
  EXPECT_EQ(media.closed + signalling.closed, 2);
  EXPECT_EQ(media.destroyed + signalling.destroyed, 0);
  first->startCmdReaderThread();
  for (std::uint8_t content : {1, 2}) produce(*first, {content});
  {
    const SngDissector second;
    EXPECT_EQ(SngDissector::dft(), &second);
    EXPECT_EQ(media.destroyed, 1);
    EXPECT_EQ(media.closed + signalling.closed, 4) << "on request, and once when it is released";
    EXPECT_EQ(signalling.destroyed, 1);
    EXPECT_TRUE(log.contains("DEBUG Dissector packet queue cleared. 2 packets dumped."));
  }
  EXPECT_EQ(SngDissector::dft(), nullptr);
}

TEST(Dissector, EmptiesTheListWhileOthersUseIt) {
  TestLog log;
  log.setLevel(log4cxx::Level::getOff());
  SngDissector dissector;
  std::atomic<bool> stop = false;
  std::thread reader([&] {
    while (!stop) dissector.isInRtpList(999, 999);
  });
  std::thread writer([&] {
    for (u_short port = 0; !stop; ++port) {
      dissector.addRtp(1, port);
      dissector.removeRtp(1, static_cast<u_short>(port - 8));
    }
  });
  for (int i = 0; i < 20000; ++i) dissector.removeAllRtp();
  stop = true;
  reader.join();
  writer.join();
  dissector.addRtp(2, 2);
  dissector.removeAllRtp();
  EXPECT_FALSE(dissector.isInRtpList(2, 2));
}

/// The engine without devices, on a separate thread: the queue, the consumer and a recorder in the test.
struct Consumer {
  explicit Consumer(bool embedded = false, const Settings& settings = {}, std::vector<SnifferRequest> commands = {}) {
    media.commands = std::move(commands);
    engine.setEmbedded(embedded);
    dissector->setSettings(settings);
    dissector->setSniffer(&engine);
    dissector->setConnections(std::make_unique<RecordingConnection>(media), nullptr);
    thread = std::thread([this] { engine.startSniffing(); });
    EXPECT_TRUE(eventually([] { return !Sniffer::getEndMain(); }));
  }
  ~Consumer() { stop(); }
  void stop() {
    engine.stopSniffing();
    if (thread.joinable()) thread.join();
  }

  RecordingConnection::Record media;
  Sniffer engine;
  SngDissector* dissector = SngDissector::dft();
  std::thread thread;
};

TEST(Queue, DeliversEveryPacketOfEveryProducerInOrder) {
  TestLog log;
  log.setLevel(log4cxx::Level::getInfo());
  Consumer consumer;
  constexpr std::uint16_t kProducers = 4, kPackets = 2000;
  consumer.dissector->addRtp(0x0A000002, 5000);
  std::vector<std::thread> producers;
  for (std::uint16_t producer = 0; producer < kProducers; ++producer) {
    producers.emplace_back([&, producer] {
      Bytes number;
      for (std::uint16_t i = 0; i < kPackets; ++i) {
        number.clear();
        append(number, i, 2);
        produce(*consumer.dissector, Frame{.srcPort = producer, .payload = number}.build());
        if (i == kPackets / 2) std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the queue runs empty
      }
    });
  }
  for (std::thread& producer : producers) producer.join();
  EXPECT_TRUE(eventually([&] { return consumer.dissector->isIdle(); }));
  consumer.stop();
  ASSERT_EQ(consumer.media.frames.size(), std::size_t{kProducers} * kPackets);
  int next[kProducers] = {};
  for (const Bytes& frame : consumer.media.frames) EXPECT_EQ(frame[15] << 8 | frame[16], next[frame[14]]++);

  // Packets that are still queued at the end are dropped and counted.
  log.setLevel(log4cxx::Level::getDebug());
  for (int i = 0; i < 3; ++i) produce(*consumer.dissector, Frame{}.build());
  consumer.dissector->consumePacket();
  EXPECT_TRUE(log.contains("DEBUG Dissector packet queue cleared. 3 packets dumped."));
  EXPECT_TRUE(consumer.dissector->isIdle());
  EXPECT_EQ(consumer.media.frames.size(), std::size_t{kProducers} * kPackets);
}

TEST(Queue, OnlyTheEmbeddedConsumerTakesCommands) {
  const TestLog log;
  Settings several;
  several.moreRecorders = "127.0.0.1:1";
  for (const Settings& settings : {Settings(), several}) {
    for (const bool embedded : {false, true}) {
      Consumer consumer(embedded, settings, {{1, 5, 5}});
      produce(*consumer.dissector, Frame{}.build());
      EXPECT_TRUE(eventually([&] { return consumer.dissector->isIdle(); }));
      EXPECT_TRUE(eventually([&] { return consumer.dissector->isInRtpList(5, 5) || !embedded; }));
      consumer.stop();
      EXPECT_EQ(consumer.dissector->isInRtpList(5, 5), embedded);
    }
  }
}

TEST(Queue, TheEndWakesAWaitingConsumer) {
  const TestLog log;
  for (int i = 0; i < 5; ++i) {
    Consumer consumer;
    std::this_thread::sleep_for(std::chrono::milliseconds(i));
    consumer.stop();
    EXPECT_TRUE(log.contains("INFO Sniffing ended."));
  }
}

/// Returns the next frames that a recorder receives; over TCP, on a new connection.
std::vector<Bytes> receivedBy(const Loopback& recorder, bool udp, std::size_t frames) {
  std::vector<Bytes> all;
  if (frames == 0) return all;
  const Loopback stream(udp ? dup(recorder.sd) : ::accept(recorder.sd, nullptr, nullptr));
  while (all.size() < frames) all.push_back(udp ? stream.readDatagram() : stream.readFrame());
  return all;
}

TEST(Connections, FollowTransportAndAddresses) {
  TestLog log;
  const struct {
    const char* transport;
    bool udp;
    bool separate;
    bool known;
  } cases[] = {{"udp", true, false, true},    {"UDPlite", true, true, true}, {"Tcp", false, true, true},
               {"SCTP", false, false, false}, {"", false, true, false},      {"UD", false, false, false}};
  for (const auto& [transport, udp, separate, known] : cases) {
    SCOPED_TRACE(transport);
    const Loopback media(udp ? SOCK_DGRAM : SOCK_STREAM, 0);
    const Loopback signalling(udp ? SOCK_DGRAM : SOCK_STREAM, 0);
    Sniffer engine;
    engine.setServerProtocol(transport);
    SngDissector& dissector = *SngDissector::dft();
    dissector.setSniffer(&engine);
    const std::string host = "127.0.0.1";
    dissector.setServerNameMedia("127.0.0.1");
    dissector.setServerNameSig(host.c_str());  // another pointer, the same text
    dissector.setServerPortMedia(media.port());
    dissector.setServerPortSig(separate ? signalling.port() : media.port());
    log.take();
    dissector.makeConnection(false);
    const std::string recorder = " recorder 127.0.0.1:" + std::to_string(media.port());
    EXPECT_EQ(log.count("ERROR Invalid ServerProtocol assuming TCP"), known ? 0 : 1);
    EXPECT_EQ(log.count("INFO UDP connection created"), udp ? 1 : 0);
    EXPECT_EQ(log.count("INFO TCP connection created"), udp ? 0 : 1);
    // The constructor logs one line, and the first attempt to connect logs its result.
    EXPECT_EQ(log.count("INFO Connecting to" + recorder) + log.count("INFO Connected to" + recorder), udp ? 0 : 2);

    const Frame sip{.payload = bytes("INVITE sip:alice.example SIP/2.0\r\n\r\n")};
    const Frame rtp;
    dissector.addRtp(rtp.dstIp, rtp.dstPort);
    process(dissector, sip.build());
    process(dissector, rtp.build());
    const Bytes sipFrame = forwarded(1, sip, sip.payload);
    const Bytes rtpFrame = forwarded(2, rtp, rtp.payload);
    using Frames = std::vector<Bytes>;
    EXPECT_EQ(receivedBy(media, udp, separate ? 1 : 2), separate ? Frames({rtpFrame}) : Frames({sipFrame, rtpFrame}));
    EXPECT_EQ(receivedBy(signalling, udp, separate ? 1 : 0), separate ? Frames({sipFrame}) : Frames());
  }
}

TEST(Connections, AnOutageEmptiesTheListAndTheQueue) {
  TestLog log;
  std::uint16_t port;
  {
    const Loopback gone(SOCK_STREAM, 0);
    port = gone.port();
  }
  SngDissector dissector;
  dissector.setConnections(std::make_unique<TcpConnection>("127.0.0.1", port), nullptr);
  const Frame rtp;
  dissector.addRtp(rtp.dstIp, rtp.dstPort);
  for (int i = 0; i < 3; ++i) produce(dissector, rtp.build());
  process(dissector, rtp.build());
  EXPECT_FALSE(dissector.isInRtpList(rtp.dstIp, rtp.dstPort));
  EXPECT_TRUE(dissector.isIdle());
  EXPECT_TRUE(log.contains("DEBUG Dissector packet queue cleared. 3 packets dumped."));
  EXPECT_EQ(dissector.getStatistics().notSent, 1U);

  // Discarded unread: a packet that would be logged and counted if it was read.
  produce(dissector, Frame{.payload = bytes("BYE sip:a SIP/2.0\r\n\r\n")}.build());
  produce(dissector, Frame{.protocol = 1}.build());
  dissector.consumePacket();
  EXPECT_EQ(dissector.getStatistics().otherDropped, 0U);
  EXPECT_EQ(dissector.getStatistics().queueDiscarded, 4U);
}

TEST(Connections, HeartbeatsNeverSplitAFrame) {
  TestLog log;
  log.setLevel(log4cxx::Level::getOff());
  const Loopback listener(SOCK_STREAM, 0);
  SngDissector dissector;
  auto connection = std::make_unique<TcpConnection>("127.0.0.1", listener.port());
  EXPECT_TRUE(eventually([&] {
    connection->tcpConnect();
    return connection->isConnected();
  }));
  dissector.setConnections(std::move(connection), nullptr);
  const Frame rtp{.payload = Bytes(1200, 3)};
  dissector.addRtp(rtp.dstIp, rtp.dstPort);
  const Bytes captured = rtp.build();
  const Bytes expected = forwarded(2, rtp, rtp.payload);
  process(dissector, captured);
  const Loopback peer = listener.accept();
  dissector.startCmdReaderThread();

  constexpr int kFrames = 3000, kHeartbeats = 1000;
  std::atomic<int> frames = 0;
  int heartbeats = 0, foreign = 0;
  std::thread reader([&] {
    while (frames < kFrames || heartbeats < kHeartbeats) {
      const Bytes frame = peer.readFrame();
      if (frame.empty()) return;
      if (frame == expected) {
        ++frames;
      } else if (frame.size() == 15 && frame[2] == 3) {
        ++heartbeats;
      } else {
        ++foreign;
      }
    }
  });
  std::thread commands([&] {
    for (int i = 0; i < kHeartbeats; ++i) peer.write(command(3));
  });
  for (int sent = 1; sent < kFrames; ++sent) {
    ASSERT_TRUE(eventually([&] { return sent - frames < 20; }));  // a full send buffer would count as an outage
    process(dissector, captured);
  }
  commands.join();
  reader.join();
  EXPECT_EQ(frames, kFrames);
  EXPECT_EQ(heartbeats, kHeartbeats);
  EXPECT_EQ(foreign, 0);
}

}  // namespace
