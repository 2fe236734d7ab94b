// Segments in, texts and log events out.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <random>

#include "../TestLog.h"
#include "Describe.h"

namespace {

constexpr std::size_t kTpkt = kHeaderLength;
constexpr std::size_t kMessage = kTpkt + kTpktLength;
constexpr std::size_t kMessageType = kMessage + 4;  // behind a call reference of two octets

TEST(Description, IsWhatEachRecordingExpects) {
  TestLog log;
  log.setLevel(log4cxx::Level::getError());
  for (const char* recording : {kCalls[0], kCalls[1], kCalls[2], kCalls[3], kRandom}) {
    H323Parser parser;
    std::size_t number = 0;
    for (const Segment& segment : readSegments(recording)) {
      const Description expected{segment.forwarded, segment.text};
      EXPECT_EQ(describe(parser, segment), expected) << recording << ", segment " << ++number;
    }
  }
}

// What may be logged, with a tab between: how an event begins, which line of the description its middle stands in
// (none: anything), and how it ends.
TEST(Description, LogsEveryKindOfEventAndNoOther) {
  std::map<std::vector<std::string>, int> kinds;
  std::istringstream rows(contentsOf(TEST_FILES "/parser/h323-random.events"));
  for (std::string beginning, line, end;
       std::getline(rows, beginning, '\t') && std::getline(rows, line, '\t') && std::getline(rows, end);) {
    kinds[{beginning, line, end}] = 0;
  }
  TestLog log;
  H323Parser parser;
  for (const Segment& segment : readSegments(kRandom)) {
    const Description description = describe(parser, segment);
    for (const std::string& event : log.take()) {
      const auto kind = std::ranges::find_if(kinds, [&](const auto& known) {
        const std::string &beginning = known.first[0], &line = known.first[1], &end = known.first[2];
        if (!event.starts_with(beginning) || !event.ends_with(end)) return false;
        std::string middle = event.substr(beginning.size(), event.size() - beginning.size() - end.size());
        middle = middle.substr(0, middle.find(" CallRef:"));
        return line.empty() || ("\n" + description.text).find("\n" + line + middle + "\n") != std::string::npos;
      });
      ASSERT_NE(kind, kinds.end()) << event << " for " << description;
      ++kind->second;
    }
  }
  for (const auto& [kind, seen] : kinds) EXPECT_GT(seen, 0) << kind[0];
}

// A trace is one event a segment, and one more in front for each tunnelled message.
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
      const std::string whole = events.back().substr(std::strlen("INFO "));
      for (const std::string& event : events) {
        ASSERT_TRUE(event.starts_with("INFO ")) << event;
        EXPECT_NE(whole.find(event.substr(std::strlen("INFO "))), std::string::npos) << event;
      }
      trace += whole + "\n";
    }
    EXPECT_EQ(trace, contentsOf(TEST_FILES "/" + std::string(call) + ".trace"));
  }
}

// Media control channels are described like media channels, though no message has them described.
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

TEST(Description, NeedsATpktHeaderButNotItsLength) {
  TestLog log;
  H323Parser parser;
  const Segment call = segmentOf(kCalls[0], "t:5");
  const auto changed = [&](std::size_t size, std::initializer_list<std::pair<std::size_t, u_char>> octets) {
    Segment segment = call;
    segment.payload.resize(kTpkt + size);
    segment.payload.shrink_to_fit();  // so that a sanitizer sees what is read behind the end
    for (const auto& [at, octet] : octets) segment.payload.at(kTpkt + at) = octet;
    return describe(parser, segment);
  };
  const std::size_t whole = call.payload.size() - kTpkt;
  const Description nothing, expected{true, call.text};
  for (std::size_t size = 0; size < kTpktLength; ++size) EXPECT_EQ(changed(size, {}), nothing) << size;
  EXPECT_EQ(changed(whole, {{0, 2}}), nothing);
  EXPECT_EQ(changed(whole, {{2, 0}, {3, 0}}), nothing);
  EXPECT_EQ(changed(whole, {{1, 77}, {2, 0}, {3, 1}}), expected);
  EXPECT_EQ(changed(whole, {{2, 255}, {3, 255}}), expected);
  // What follows the message in its segment is read as information elements, and is none.
  EXPECT_EQ(changed(whole + 1, {}), expected);
  // A header alone: the type and the reference of the message before, which is not a message.
  EXPECT_EQ(changed(kTpktLength, {}), (Description{false, call.text.substr(0, call.text.find("c:"))}));
  // The length is counted in 16 bits.
  EXPECT_EQ(changed(65536, {}), nothing);
  EXPECT_EQ(changed(65536 + 3, {}), nothing);
}

// H.245 is tried first, on every segment. And the type says what body there must be.
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

// A Q.931 information element in front of those of a message.
void putElement(Segment& segment, u_char code, std::string_view contents) {
  std::string element{static_cast<char>(code), static_cast<char>(contents.size())};
  element += contents;
  segment.payload.insert(segment.payload.begin() + kMessageType + 1, element.begin(), element.end());
}

// Texts of the network are passed on as they are, but for what is behind a zero.
TEST(Description, TakesTheNumbersOfQ931ForMissingAliasesWhateverIsInThem) {
  TestLog log;
  H323Parser parser;
  using namespace std::string_view_literals;
  Segment setup = segmentOf(kRandom, "t:5\n", "\ns:\nd:\n");
  putElement(setup, 108, "\x81 1\n\xff\xc3\n2\0003"sv);
  putElement(setup, 112, "\x01\x81\t\xe2\x82"sv);
  setup.text.replace(setup.text.find("s:\nd:\n"), 6, "s: 1\n\xff\xc3\n2\nd:\t\xe2\x82\n");
  EXPECT_EQ(describe(parser, setup), (Description{true, setup.text}));
  const auto events = log.take();
  EXPECT_TRUE(std::ranges::any_of(
      events, [](const std::string& event) { return event.starts_with("DEBUG SETUP (Q931) Caller:  1\n"); }));

  Segment information = segmentOf(kRandom, "t:123\n", "\ni:\n");
  putElement(information, 112, "\x81#9*");
  information.text.insert(information.text.size() - 1, "#9*");
  EXPECT_EQ(describe(parser, information), (Description{true, information.text}));
}

// Messages of H.245 in one of Q.931.
Segment tunnelled(const std::vector<std::string>& elements) {
  const auto length = [](std::size_t size) {
    return std::string{static_cast<char>(0x80 | size >> 8), static_cast<char>(size)};
  };
  std::string list = length(elements.size());
  for (const std::string& element : elements) list += length(element.size()) + element;
  const std::string body = "\x05\x28\x10\x01" + std::string("\0\x04\xc0\x01\x80", 5) + length(list.size()) + list;
  std::string message("\x03\0\x20\0\x08\x02\0\x01\x62\x7e", 10);
  message += {static_cast<char>(body.size() >> 8), static_cast<char>(body.size())};
  message += body;
  Segment segment;
  segment.payload.resize(kTpkt);
  segment.payload.insert(segment.payload.end(), message.begin(), message.end());
  return segment;
}

// Hundreds of channels are described; what is behind thousands of messages that come to nothing is not, however well
// each of them does by itself.
TEST(Description, EndsWhereASegmentIsNotWorthTheWork) {
  TestLog log;
  log.setLevel(log4cxx::Level::getError());
  H323Parser parser;
  const auto octets = fromHex("030000640c2013800b0d0001000a140002138900");
  const std::string channel(octets.begin(), octets.end());
  const auto channelsIn = [&](const std::vector<std::string>& elements) {
    const std::string text = describe(parser, tunnelled(elements)).text;
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

// Whatever is cut off or turned over, the next whole message is described as if nothing had been. The maps apart, a
// parser has no memory.
TEST(Description, SurvivesDamage) {
  TestLog log;
  log.setLevel(log4cxx::Level::getFatal());
  H323Parser parser;
  std::mt19937 random(1);
  const Segment whole = segmentOf(kCalls[0], "t:5");
  const auto segments = readSegments(kRandom);
  for (std::size_t i = 0; i < segments.size(); i += 97) {
    for (std::size_t size = kTpkt; size < segments[i].payload.size(); ++size) {
      Segment cut = segments[i];
      cut.payload.resize(size);
      cut.payload.shrink_to_fit();
      describe(parser, cut);
      Segment flipped = segments[i];
      for (int flips = 0; flips < 3; ++flips) {
        flipped.payload[kMessage + random() % (flipped.payload.size() - kMessage)] ^= 1U << random() % 8;
      }
      describe(parser, flipped);
    }
    ASSERT_EQ(describe(parser, whole), (Description{true, whole.text}));
  }
}

}  // namespace
