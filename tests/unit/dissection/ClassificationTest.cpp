#include <gtest/gtest.h>
#include <pcap/dlt.h>

#include <memory>

#include "support/Frames.h"
#include "support/TestLog.h"

using namespace voip;

namespace {

const Bytes kSip = bytes("INVITE sip:alice.example SIP/2.0\r\n\r\n");

/// A dissector whose recorder is the test, with 10.0.0.2:5000 on the list.
class Classification : public testing::Test {
 protected:
  Classification() {
    dissector.setConnections(std::make_unique<RecordingConnection>(media),
                             std::make_unique<RecordingConnection>(signalling));
    dissector.addRtp(0x0A000002, 5000);
    log.take();
  }

  /// Returns the frame that is sent for a captured frame; empty when none is.
  Bytes sentFor(const Bytes& frame) {
    media.frames.clear();
    signalling.frames.clear();
    process(dissector, frame);
    EXPECT_LE(media.frames.size() + signalling.frames.size(), 1U);
    if (!signalling.frames.empty()) return signalling.frames[0];
    return media.frames.empty() ? Bytes() : media.frames[0];
  }

  TestLog log;
  RecordingConnection::Record media, signalling;
  SngDissector dissector;
};

TEST_F(Classification, ForwardsIpv6LikeIpv4WithTheSetting) {
  const Frame ipv6{.payload = {7}, .ipv6 = true};
  const Bytes address = ipv6.address(0x0A000002);
  const auto sentForFrame = [&](const Bytes& frame) {
    media.frames.clear();
    signalling.frames.clear();
    Bytes copy = withSlack(frame);
    dissector.processFrame(captureHeader(frame), copy.data(), DLT_EN10MB);
    EXPECT_LE(media.frames.size() + signalling.frames.size(), 1U);
    if (!signalling.frames.empty()) return signalling.frames[0];
    return media.frames.empty() ? Bytes() : media.frames[0];
  };
  const auto carryOut = [&](u_short code) {
    media.commands.emplace_back(code, IpAddress::read(address.data()), u_short{5000});
    dissector.checkCommand();
  };
  carryOut(4);
  EXPECT_EQ(sentForFrame(ipv6.build()), Bytes()) << "without the setting";
  EXPECT_EQ(dissector.getStatistics().otherDropped, 1U);
  Settings settings;
  settings.ipv6 = true;
  dissector.setSettings(settings);
  EXPECT_EQ(sentForFrame(ipv6.build()),
            Bytes({0,    40,   66, 0x20, 1,    0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0,  0, 10, 0, 0,    2,    0x13,
                   0x88, 0x20, 1,  0x0D, 0xB8, 0,    0,    0, 0, 0, 0, 0, 0, 10, 0, 0,  1, 0x0F, 0xA0, 7}));
  const struct {
    const char* what;
    Frame frame;
    std::uint8_t protocol;  // 0: dropped
  } cases[] = {
      {"listed", {}, 2},
      {"SIP to anywhere", {.dstPort = 9, .payload = kSip}, 1},
      {"SIP to a listed destination", {.payload = kSip}, 1},
      {"jumbo", {.payload = Bytes(8000, 1)}, 2},
      {"empty", {.payload = {}}, 0},
      {"other port", {.dstPort = 5001}, 0},
      {"other address", {.dstIp = 0x0A000003}, 0},
      {"from a listed address", {.srcIp = 0x0A000002, .srcPort = 5000, .dstIp = 0x0A000001, .dstPort = 4000}, 0},
      {"SIP over TCP", {.payload = kSip, .protocol = 6}, 0},
  };
  for (auto [what, frame, protocol] : cases) {
    for (const bool isIpv6 : {false, true}) {
      frame.ipv6 = isIpv6;
      const Bytes expected = protocol == 0 ? Bytes() : forwarded(protocol, frame, frame.payload);
      EXPECT_EQ(sentForFrame(frame.build()), expected) << what;
    }
  }
  const Frame padded{.payload = bytes("0123456789"), .minimum = 100, .ipv6 = true};
  EXPECT_EQ(sentForFrame(padded.build()), forwarded(2, padded, padded.payload)) << "padding does not count as payload";
  EXPECT_EQ(sentForFrame(Frame{.payload = Bytes(65'496, 1), .ipv6 = true}.build()).size(), 65'535U);
  EXPECT_EQ(sentForFrame(Frame{.payload = Bytes(65'497, 1), .ipv6 = true}.build()).size(), 0U);
  EXPECT_EQ(dissector.getStatistics().ipv6TooLong, 1U);
  EXPECT_EQ(dissector.getStatistics().ipv6Items, 13U);
  carryOut(5);
  EXPECT_EQ(sentForFrame(ipv6.build()), Bytes());
  EXPECT_TRUE(log.contains("DEBUG Added to list rtp (ip=2001:db8::a00:2, port=0x1388=5000)"));
  EXPECT_TRUE(log.contains("DEBUG Removed from list rtp (ip=2001:db8::a00:2, port=0x1388=5000)"));
}

TEST_F(Classification, ForwardsWhatTheRecorderWants) {
  const Frame rtp;
  Bytes whole = {0, 0xAF, 2, 10, 0, 0, 2, 0x13, 0x88, 10, 0, 0, 1, 0x0F, 0xA0};
  append(whole, rtp.payload);
  EXPECT_EQ(sentFor(rtp.build()), whole);
  const Bytes vlan = {0x81, 0, 0, 5, 8, 0};
  const Bytes qinq = {0x88, 0xA8, 0, 5, 0x81, 0, 0, 6, 8, 0};
  const Bytes options(40, 0x01);
  const Bytes ten = bytes("0123456789");
  const Bytes padded = bytes("0123456789" + std::string(8, '\0'));
  const struct {
    const char* what;
    Frame frame;
    int protocol;  // 0: dropped without a log line
    Bytes payload = {};
  } cases[] = {
      {"listed", rtp, 2, rtp.payload},
      {"VLAN", {.link = vlan}, 2, rtp.payload},
      {"QinQ", {.link = qinq}, 2, rtp.payload},
      {"IP under a foreign EtherType", {.link = {0x08, 0x06}}, 2, rtp.payload},
      {"IP options", {.ipVhl = 0x4F, .ipOptions = options}, 2, rtp.payload},
      {"any IP version", {.ipVhl = 0xF5}, 2, rtp.payload},
      {"one byte", {.payload = {7}}, 2, {7}},
      {"jumbo", {.payload = Bytes(8000, 1)}, 2, Bytes(8000, 1)},
      {"padding counts as payload", {.payload = ten, .minimum = 60}, 2, padded},
      {"SIP to anywhere", {.dstPort = 9, .payload = kSip}, 1, kSip},
      {"SIP to a listed destination", {.payload = kSip}, 1, kSip},
      {"SIP response", {.dstPort = 9, .payload = bytes("sip/2.0 200 OK")}, 1, bytes("sip/2.0 200 OK")},
      {"empty", {.payload = {}}, 0},
      {"other port", {.dstPort = 5001}, 0},
      {"other address", {.dstIp = 0x0A000003}, 0},
      {"from a listed address", {.srcIp = 0x0A000002, .srcPort = 5000, .dstIp = 0x0A000001, .dstPort = 4000}, 0},
      {"SIP over TCP", {.payload = kSip, .protocol = 6}, 0},
      {"TCP to a listed destination", {.protocol = 6}, 0},
      {"TCP without payload", {.payload = {}, .protocol = 6}, 0},
  };
  for (const auto& [what, frame, protocol, payload] : cases) {
    EXPECT_EQ(sentFor(frame.build()),
              protocol == 0 ? Bytes() : forwarded(static_cast<std::uint8_t>(protocol), frame, payload))
        << what;
  }
  EXPECT_TRUE(log.take().empty());
}

TEST_F(Classification, LogsWhyItDropsInvalidHeaders) {
  const std::string dump = "tos=00 len=3c00 id=001c off=0040 ttl=40 p=";
  const std::string header = "ERROR *** Dropping IP packet with unknown IP header\n";
  const std::string upper = "ERROR *** Dropping IP packet with unknown upper layer protocol\n";
  const struct {
    Frame frame;
    std::string event;
  } cases[] = {
      {{.protocol = 1}, upper + "vhl=45 " + dump + "01 sum=cdab"},
      {{.ipVhl = 0x44}, header + "vhl=44 " + dump + "11 sum=cdab"},
      {{.ipVhl = 0x60, .protocol = 6}, header + "vhl=60 " + dump + "06 sum=cdab"},
      {{.protocol = 6, .tcpOffset = 0x4F}, "INFO *** Fragmented TCP message. Header length: 16 bytes"},
      {{.protocol = 6, .tcpOffset = 0x00}, "INFO *** Fragmented TCP message. Header length: 0 bytes"},
  };
  for (const auto& [frame, event] : cases) {
    EXPECT_EQ(sentFor(frame.build()), Bytes());
    EXPECT_EQ(log.take(), std::vector<std::string>{event});
  }
}

TEST_F(Classification, ForwardsOnlyCapturedPayloadOfTruncatedFrames) {
  const Bytes qinq = {0x88, 0xA8, 0, 5, 0x81, 0, 0, 6, 8, 0};
  const struct {
    Frame frame;
    std::size_t start;     // of the payload, according to the headers
    std::size_t shortest;  // payload that is recognised, in bytes
    std::uint8_t protocol;
  } cases[] = {
      {{}, 42, 1, 2},
      {{.link = qinq}, 50, 1, 2},
      {{.ipVhl = 0x4F}, 82, 1, 0},  // the bytes after the claimed header are no listed port
      {{.dstPort = 9, .payload = kSip}, 42, 11, 1},
      {{.dstPort = 9, .payload = bytes("SIP/2.0 200 OK")}, 42, 7, 1},
      {{.protocol = 6}, 54, 1, 0},
      {{.link = qinq, .protocol = 6, .tcpOffset = 0xF0}, 102, 1, 0},
      {{.protocol = 1}, 34, 1, 0},
  };
  for (const auto& [frame, start, shortest, protocol] : cases) {
    const Bytes whole = frame.build();
    for (std::size_t length = 0; length <= whole.size(); ++length) {
      const Bytes cut(whole.begin(), whole.begin() + static_cast<long>(length));
      Bytes expected;
      if (protocol != 0 && length >= start + shortest) {
        expected = forwarded(protocol, frame, Bytes(cut.begin() + static_cast<long>(start), cut.end()));
      }
      EXPECT_EQ(sentFor(cut), expected) << "protocol " << int{frame.protocol} << " cut to " << length;
    }
  }
}

TEST_F(Classification, QueuesOnlyCapturedBytes) {
  const Bytes frame(9000, 0xAA);
  const struct {
    bpf_u_int32 wire, captured, limit, expected;
  } cases[] = {{300, 300, 8192, 300}, {9000, 300, 8192, 300}, {100, 300, 8192, 100}, {300, 300, 64, 64}, {0, 0, 64, 0}};
  Statistics statistics;
  PacketQueue queue(statistics);
  for (const auto& [wire, captured, limit, expected] : cases) {
    const pcap_pkthdr header{{1, 2}, captured, wire};
    queue.push({nullptr, &header, frame.data()}, limit, PacketQueue::Kind::kSignalling);
    ASSERT_TRUE(queue.takeBatch(std::chrono::milliseconds(0)));
    QueuedPacket* packet = queue.next();
    EXPECT_EQ(packet->header.len, expected);
    EXPECT_EQ(packet->header.caplen, expected);
    for (std::size_t i = 0; i < kFrameSlack; ++i) ASSERT_EQ(packet->bytes()[expected + i], 0);
  }
}

TEST_F(Classification, ListKeepsDuplicatesAndRemovesThemTogether) {
  const Bytes rtp = Frame{}.build();
  dissector.addRtp(0x0A000002, 5000);
  dissector.removeRtp(0x0A000002, 5001);
  EXPECT_FALSE(sentFor(rtp).empty());
  dissector.removeRtp(0x0A000002, 5000);
  EXPECT_TRUE(sentFor(rtp).empty());
  dissector.addRtp(0x0A010203, 8000);
  dissector.removeRtp(0x0A010203, 8000);
  const std::vector<std::string> events = log.take();
  ASSERT_EQ(events.size(), 5U);
  EXPECT_EQ(events[3], "DEBUG Added to list rtp (ip=0xa010203=10.1.2.3, port=0x1f40=8000)");
  EXPECT_EQ(events[4], "DEBUG Removed from list rtp (ip=0xa010203=10.1.2.3, port=0x1f40=8000)");

  dissector.addRtp(0x0A000002, 5000);
  dissector.removeAllRtp();
  EXPECT_TRUE(sentFor(rtp).empty());
  dissector.removeAllRtp();
  dissector.addRtp(0x0A000002, 5000);
  EXPECT_FALSE(sentFor(rtp).empty()) << "an entry that is added after the list was emptied stays";
}

TEST_F(Classification, RoutesHeartbeatsByTheClassOfTheLastFrame) {
  const auto heartbeatGoesTo = [&](RecordingConnection::Record& to) {
    media.frames.clear();
    signalling.frames.clear();
    dissector.replyHeartbeat();
    return to.frames.size() == 1 && to.frames[0].size() == 15 && to.frames[0][0] == 0 && to.frames[0][1] == 15 &&
           to.frames[0][2] == 3;
  };
  std::uint8_t unknown[15] = {0, 15, 4};
  dissector.sendPayload(unknown, 15);
  EXPECT_EQ(log.take(), std::vector<std::string>{"WARN PAYLOAD NOT SENT"});
  EXPECT_TRUE(heartbeatGoesTo(media));
  process(dissector, Frame{.payload = kSip}.build());
  EXPECT_EQ(signalling.frames.size(), 1U);
  EXPECT_TRUE(heartbeatGoesTo(signalling));
  process(dissector, Frame{}.build());
  EXPECT_EQ(media.frames.size(), 1U);
  EXPECT_TRUE(heartbeatGoesTo(media));
  EXPECT_EQ(log.count("DEBUG Heartbeat sent"), 3);

  const Bytes frame = forwarded(2, Frame{}, {});
  dissector.printFormatHeader(frame.data());
  EXPECT_TRUE(log.contains("DEBUG len=15, prot=2, dstIp=10.0.0.2, dstPort=5000, srcIp=10.0.0.1, srcPort=4000"));
}

}  // namespace
