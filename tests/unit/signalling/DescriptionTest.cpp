// Passes segments to the parser and compares texts and log events.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <random>

#include "signalling/H323Parser.h"
#include "support/Segments.h"
#include "support/TestLog.h"

using namespace voip;

namespace {

/// Whether the segment is forwarded, and the text.
using Description = std::pair<bool, std::string>;

Description describe(H323Parser& parser, Segment segment) {
  PString text;
  const bool forwarded =
      parser.parseH323(segment.payload.data(), static_cast<int>(segment.payload.size()), kHeaderLength, segment.tx_ip,
                       segment.rx_ip, segment.tx_port, segment.rx_port, text);
  return {forwarded, static_cast<const char*>(text)};
}

constexpr std::size_t kTpkt = kHeaderLength;
constexpr std::size_t kMessage = kTpkt + kTpktLength;
constexpr std::size_t kMessageType = kMessage + 4;  // after a call reference of two octets

// Ignores the log lines of the call maps, which the test of CallMaps compares.
TEST(Description, IsWhatEachRecordingExpects) {
  TestLog log;
  std::string events;
  for (const char* recording : {kCalls[0], kCalls[1], kCalls[2], kCalls[3], kRandom}) {
    H323Parser parser;
    std::size_t number = 0;
    for (const Segment& segment : readSegments(recording)) {
      const Description expected{segment.forwarded, segment.text};
      EXPECT_EQ(describe(parser, segment), expected) << recording << ", segment " << ++number;
      for (const std::string& event : log.take()) {
        if (event.find("Map --- Key") == event.npos) events += event + "\n";
      }
    }
  }
  EXPECT_EQ(events, contentsOf(TEST_FILES "/signalling/events.log"));
}

// A segment is traced in one event, after one event for each tunnelled message.
TEST(Description, IsTracedAsRecorded) {
  TestLog log;
  for (const char* call : kCalls) {
    H323Parser parser;
    parser.setTraceSignalling(true);
    std::string trace;
    for (const Segment& segment : readSegments(call)) {
      log.setLevel(log4cxx::Level::getWarn());
      describe(parser, segment);
      EXPECT_EQ(log.take().size(), 0);
      log.setLevel(log4cxx::Level::getInfo());
      describe(parser, segment);
      const auto events = log.take();
      ASSERT_FALSE(events.empty());
      trace += events.back().substr(std::strlen("INFO ")) + "\n";
    }
    EXPECT_EQ(trace, contentsOf(TEST_FILES "/" + std::string(call) + ".trace"));
  }
}

// No description contains a media control channel, so the test calls its operation itself.
TEST(Description, OfAMediaControlChannelDiffersInItsNameOnly) {
  TestLog log;
  const auto describeBoth = [&, parser = std::make_unique<H323Parser>()](std::string_view encoded) {
    const auto octets = fromHex(encoded);
    const auto arena = std::make_unique<asn1::Arena>();
    PPER_Stream stream(PBYTEArray(octets.data(), octets.size()));
    H245_TransportAddress address(asn1::decode(asn1::h245::TransportAddress, stream, *arena));
    PString text;
    parser->getMediaChannelAttributes(address, text);
    parser->getMediaControlChannelAttributes(address, text);
    return text;
  };
  EXPECT_EQ(describeBoth("000a0000011388"), "rtp:10.0.0.1 5000rtcp:10.0.0.1 5000");
  EXPECT_EQ(describeBoth("400a0000011388"), "");
  EXPECT_EQ(describeBoth("0c30313233343536373839616263646566"), "");
  const std::string multicast = " Address is not Unicast. multicastAddress is not supported";
  const std::string netBios = " address is not IPv4. netBios is not supported";
  EXPECT_EQ(log.take(), (std::vector{"DEBUG MediaChannel" + multicast, "DEBUG MediaControlChannel" + multicast,
                                     "DEBUG MediaChannel" + netBios, "DEBUG MediaControlChannel" + netBios}));
}

TEST(Description, ContainsIpv6AddressesWithTheSetting) {
  TestLog log;
  const auto parser = std::make_unique<H323Parser>();
  const auto describe = [&](const std::string& address) {
    const auto octets = fromHex("08" + address + "c012");
    const auto arena = std::make_unique<asn1::Arena>();
    PPER_Stream stream(PBYTEArray(octets.data(), octets.size()));
    H245_TransportAddress decoded(asn1::decode(asn1::h245::TransportAddress, stream, *arena));
    PString text;
    parser->getMediaChannelAttributes(decoded, text);
    return std::string(static_cast<const char*>(text));
  };
  EXPECT_EQ(describe("20010db8000000000000000000000005"), "");
  EXPECT_EQ(log.take(),
            std::vector<std::string>{"DEBUG MediaChannel address is not IPv4. iP6Address is not supported"});
  parser->setIpv6(true);
  const std::pair<const char*, const char*> cases[] = {
      {"20010db8000000000000000000000005", "rtp:[2001:db8::5] 49170"},
      {"20010DB8000000010000000000000001", "rtp:[2001:db8:0:1::1] 49170"},
      {"20010db8000000000001000000000001", "rtp:[2001:db8::1:0:0:1] 49170"},
      {"20010db8000000010001000100010001", "rtp:[2001:db8:0:1:1:1:1:1] 49170"},
      {"00000000000000000000000000000001", "rtp:[::1] 49170"},
      {"00000000000000000000000000010002", "rtp:[::1:2] 49170"},
      {"00000000000000000000ffff0a000005", "rtp:10.0.0.5 49170"}};
  for (const auto& [octets, text] : cases) EXPECT_EQ(describe(octets), text);
}

TEST(Description, FindsTheCallOfAnH245ConnectionOverIpv6) {
  TestLog log;
  H323Parser parser;
  parser.setIpv6(true);
  const Segment ack = segmentOf(kCalls[2], "t:131");
  const auto octets = fromHex("20010db8000000000000000000000005");
  const IpAddress listens = IpAddress::read(octets.data());
  PString callReference("77");
  H323Parser::h245Addr announced("[2001:db8::5]", 1720);
  parser.updateMaps(callReference, announced);
  const std::span message(ack.payload.data() + kHeaderLength, ack.payload.size() - kHeaderLength);
  const auto described = [&](const H323Parser::Connection& connection) {
    PString text;
    return parser.parseSegment(message, connection, text) ? std::string(static_cast<const char*>(text)) : "";
  };
  const std::string expected = "t:131\nr:77" + ack.text.substr(ack.text.find('\n', 6));
  EXPECT_EQ(described({listens, 0x0A000001, 1720, 9}), expected);
  EXPECT_EQ(described({0x0A000001, listens, 9, 1720}), expected);
  EXPECT_EQ(described({listens, 0x0A000001, 1721, 9}), "");
  EXPECT_EQ(described({0x00000005, 0x0A000001, 1720, 9}), "");
}

TEST(Description, NeedsATpktHeaderButNotItsLength) {
  TestLog log;
  H323Parser parser;
  const Segment call = segmentOf(kCalls[0], "t:5");
  const auto changed = [&](std::size_t size, std::initializer_list<std::pair<std::size_t, u_char>> octets) {
    Segment segment = call;
    segment.payload.resize(kTpkt + size);
    segment.payload.shrink_to_fit();  // so that a sanitizer finds a read beyond the end
    for (const auto& [at, octet] : octets) segment.payload.at(kTpkt + at) = octet;
    return describe(parser, segment);
  };
  const std::size_t whole = call.payload.size() - kTpkt;
  const Description nothing, expected{true, call.text};
  for (std::size_t size = 0; size < kTpktLength; ++size) EXPECT_EQ(changed(size, {}), nothing) << size;
  EXPECT_EQ(changed(whole, {{0, 2}}), nothing);
  EXPECT_EQ(changed(whole, {{2, 0}, {3, 0}}), nothing);
  EXPECT_EQ(changed(whole, {{1, 77}, {2, 0}, {3, 1}}), expected);
  // Octets after the message are read as information elements. A single octet is none.
  EXPECT_EQ(changed(whole + 1, {}), expected);
  // After a header alone the parser still has the type and the reference of the previous message, but no body.
  EXPECT_EQ(changed(kTpktLength, {}), (Description{false, call.text.substr(0, call.text.find("c:"))}));
  // The parser keeps the length in 16 bits.
  for (const std::size_t size : {65536, 65536 + 3}) EXPECT_EQ(changed(size, {}), nothing);
}

// The parser tries H.245 first on every segment, regardless of the call reference. The body must match the type.
TEST(Description, GoesByCallReferenceAndTypeWhateverTheyAre) {
  TestLog log;
  log.setLevel(log4cxx::Level::getError());
  H323Parser parser;
  for (Segment segment : readSegments(kRandom)) {
    if (!segment.forwarded || segment.isH245() || segment.text.find("\nc:") == std::string::npos) continue;
    for (const unsigned reference : {0U, 1U, 0x3480U, 0x7FFFU}) {
      segment.payload[kMessage + 2] = static_cast<u_char>(reference >> 8 | 0x80);
      segment.payload[kMessage + 3] = static_cast<u_char>(reference);
      const auto rest = segment.text.find("\nc:");
      segment.text.replace(segment.text.find("r:"), rest - segment.text.find("r:"), "r:" + std::to_string(reference));
      ASSERT_EQ(describe(parser, segment), (Description{true, segment.text}));
    }
    for (const u_char type : {5, 2, 3, 1, 7, 13, 123, 98, 90, 110, 125, 0, 255}) {
      Segment other = segment;
      if (std::exchange(other.payload[kMessageType], type) == type) continue;
      EXPECT_EQ(describe(parser, other), (Description{false, "t:" + std::to_string(type) + "\nr:32767\n"}));
    }
  }
}

// The parser copies texts from the network unchanged up to the first zero.
TEST(Description, TakesTheNumbersOfQ931ForMissingAliasesWhateverIsInThem) {
  TestLog log;
  H323Parser parser;
  Segment setup = segmentOf(kRandom, "t:5\n", "\ns:\nd:\n");
  const auto elements = fromHex("6c0a8120310affc30a3200337005018109e282");
  setup.payload.insert(setup.payload.begin() + kMessageType + 1, elements.begin(), elements.end());
  setup.text.replace(setup.text.find("s:\nd:\n"), 6, "s: 1\n\xff\xc3\n2\nd:\t\xe2\x82\n");
  EXPECT_EQ(describe(parser, setup), (Description{true, setup.text}));
}

Segment segmentFrom(const std::string& hex) {
  Segment segment;
  segment.payload = fromHex(std::string(2 * kHeaderLength, '0') + hex);
  return segment;
}

/// A Q.931 message with tunnelled H.245 messages.
Segment tunnelled(const std::vector<std::string>& elements) {
  const auto sized = [](const std::string& octets, std::size_t size, unsigned flag) {
    return std::string{static_cast<char>(flag | size >> 8), static_cast<char>(size)} + octets;
  };
  std::string list;
  for (const std::string& element : elements) list += sized(element, element.size(), 0x80);
  list = sized(list, elements.size(), 0x80);
  const auto empty = fromHex("052810010004c00180"), facility = fromHex("0300200008020001627e");
  const std::string body = std::string(empty.begin(), empty.end()) + sized(list, list.size(), 0x80);
  const std::string message = std::string(facility.begin(), facility.end()) + sized(body, body.size(), 0);
  Segment segment = segmentFrom("");
  segment.payload.insert(segment.payload.end(), message.begin(), message.end());
  return segment;
}

// Hundreds of channels are described, but a channel after thousands of useless messages is not.
TEST(Description, EndsWhenTheEffortOfASegmentIsUsedUp) {
  TestLog log;
  log.setLevel(log4cxx::Level::getError());
  H323Parser parser;
  const auto octets = fromHex("030000640c2013800b0d0001000a140002138900");
  const std::string channel(octets.begin(), octets.end());
  const auto channelsIn = [&](const std::vector<std::string>& elements) {
    const std::string text = describe(parser, tunnelled(elements)).second;
    return std::count(text.begin(), text.end(), 'm');
  };
  EXPECT_EQ(channelsIn(std::vector<std::string>(380, channel)), 380);
  for (const std::string bomb : {"\x62\xc0\xc4", "\x61\x89", "\x42", "\x6d\x80\x41"}) {
    std::vector<std::string> elements(100, bomb);
    elements.push_back(channel);
    EXPECT_EQ(channelsIn(elements), 1);
    elements.insert(elements.begin(), 1500, bomb);
    EXPECT_EQ(channelsIn(elements), 0);
  }
}

// Who passes on many TPKTs limits their number by their steps: each has an effort of its own.
TEST(Description, TellsTheStepsOfEachTpkt) {
  TestLog log;
  log.setLevel(log4cxx::Level::getError());
  H323Parser parser;
  const Segment call = segmentOf(kCalls[0], "t:5");
  const Segment channel = segmentFrom("03000018030000640c2013800b0d0001000a140002138900");
  const std::string complaint = "ERROR Dropping pkt as received OLC does not match existing session";
  for (const bool isLimited : {false, true}) {
    parser.setLimitsComplaints(isLimited);
    for (int i = 0; i < 1000; ++i) describe(parser, channel);
    EXPECT_EQ(describe(parser, call), (Description{true, call.text}));
    EXPECT_GT(parser.steps(), 50U);
    EXPECT_EQ(log.count(complaint) == 1000, !isLimited);
    log.take();
  }
  std::vector<std::string> bombs(4000, "\x61\x89");
  describe(parser, tunnelled(bombs));
  EXPECT_EQ(parser.steps(), asn1::Effort::kSteps);
  describe(parser, segmentFrom("0400000500"));
  EXPECT_EQ(parser.steps(), 0U);
}

TEST(LineLimit, AdmitsOneLineASecondAndCountsTheOthers) {
  LineLimit limit;
  const auto admitted = [&](int milliseconds) {
    return limit.admit("line", LineLimit::Clock::time_point(std::chrono::milliseconds(milliseconds))).value_or("");
  };
  EXPECT_EQ(admitted(0), "line");
  EXPECT_EQ(admitted(0), "");
  EXPECT_EQ(admitted(999), "");
  EXPECT_EQ(admitted(1000), "line (2 such lines suppressed)");
  EXPECT_EQ(admitted(1999), "");
  EXPECT_EQ(admitted(5000), "line (1 such lines suppressed)");
  EXPECT_EQ(admitted(9000), "line");
}

// A damaged message has no effect on the description of the next one: the parser keeps no state but the call maps.
TEST(Description, SurvivesDamage) {
  TestLog log;
  log.setLevel(log4cxx::Level::getInfo());
  H323Parser parser;
  parser.setTraceSignalling(true);  // so that printing is tested as well
  std::mt19937 random(1);
  const Segment whole = segmentOf(kCalls[0], "t:5");
  const auto segments = readSegments(kRandom);
  for (std::size_t i = 0; i < segments.size(); i += 97) {
    for (std::size_t size = kTpkt; size < segments[i].payload.size(); ++size) {
      Segment cut = segments[i], bent = segments[i];
      cut.payload.resize(size);
      cut.payload.shrink_to_fit();
      describe(parser, cut);
      for (int flips = 0; flips < 3; ++flips) bent.payload[std::max(size, kMessage)] ^= 1U << random() % 8;
      describe(parser, bent);
    }
    log.take();
    ASSERT_EQ(describe(parser, whole), (Description{true, whole.text}));
  }
}

}  // namespace
