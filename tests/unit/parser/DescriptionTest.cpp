// Segments in, texts and log events out.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "../TestLog.h"
#include "Segments.h"

namespace {

constexpr std::size_t kTpkt = kHeaderLength;
constexpr std::size_t kMessageType = kTpkt + 4 + 4;  // behind a call reference of two octets

// A Q.931 information element in front of those of a message, of which `at` is the first.
void putElement(Segment& segment, std::size_t at, u_char code, std::string_view contents) {
  std::string element{static_cast<char>(code), static_cast<char>(contents.size())};
  element += contents;
  segment.payload.insert(segment.payload.begin() + static_cast<std::ptrdiff_t>(at), element.begin(), element.end());
}

// What may be logged: how an event begins and ends, and which line of the description its middle stands in.
struct Event {
  std::string_view beginning;
  std::string_view line = "";
  std::string_view end = "";

  bool describes(std::string_view event, std::string_view text) const {
    if (event.size() < beginning.size() + end.size() || !event.starts_with(beginning) || !event.ends_with(end)) {
      return false;
    }
    event.remove_prefix(beginning.size());
    event.remove_suffix(end.size());
    if (line.empty()) return true;
    if (line == "c:" && beginning.find("ReleaseComplete") != beginning.npos) event = event.substr(0, 36);
    const std::string wanted = "\n" + std::string(line) + std::string(event) + "\n";
    return ("\n" + std::string(text)).find(wanted) != std::string::npos;
  }
};

constexpr Event kEvents[] = {
    {"DEBUG SETUP CallId: ", "c:"},
    {"DEBUG CallProceeding CallId: ", "c:"},
    {"DEBUG Progress CallId: ", "c:"},
    {"DEBUG Alerting CallId: ", "c:"},
    {"DEBUG Connect CallId: ", "c:"},
    {"DEBUG SetupAck CallId: ", "c:"},
    {"DEBUG Information CallId: ", "c:"},
    {"DEBUG Facility CallId: ", "c:"},
    {"DEBUG ReleaseComplete CallId: ", "c:"},
    {"DEBUG SETUP (H225) Caller: ", "s:"},
    {"DEBUG SETUP (H225) Callee: ", "d:"},
    {"DEBUG SETUP (Q931) Caller: ", "s:"},
    {"DEBUG SETUP (Q931) Callee: ", "d:"},
    {"DEBUG Digit: ", "i:"},
    {"DEBUG H.245 DTMF Passed: ", "i:"},
    {"DEBUG SETUP has h245 address which is not IPv4"},
    {"DEBUG ALERTING has h245 address which is not IPv4"},
    {"DEBUG CONNECT has h245 address which is not IPv4"},
    {"ERROR netBios"},
    {"ERROR ipSourceRoute"},
    {"ERROR nsap"},
    {"ERROR ip6Address"},
    {"ERROR ipxAddress"},
    {"ERROR nonStandardAddress"},
    {"DEBUG H323 fast-start parameter decode failed"},
    {"DEBUG MediaChannel Address is not Unicast. multicastAddress is not supported"},
    {"DEBUG MediaChannel address is not IPv4. ", "", " is not supported"},
    {"ERROR Dropping pkt as received OLC does not match existing session"},
    {"ERROR Dropping pkt as received OLCAck does not match existing session"},
    {"DEBUG Tx IP:Port="},
    {"DEBUG CallRefMap is empty"},
    {"DEBUG h245Map is empty"},
    {"DEBUG Call Ref Map --- Key = "},
    {"DEBUG h245Map --- Key = "},
    {"DEBUG Inserted ", "", " into Call Reference Map"},
    {"DEBUG Inserted ", "", " into H245 Map"},
    {"DEBUG Erased ", "", " from Call Reference Map"},
    {"DEBUG Erased ", "", " from H245 Map"},
};

TEST(Description, IsWhatEachRecordingExpects) {
  TestLog log;
  log.setLevel(log4cxx::Level::getError());
  for (const char* recording : {kCalls[0], kCalls[1], kCalls[2], kCalls[3], kRandom}) {
    H323Parser parser;
    std::vector<Segment> segments = readSegments(recording);
    EXPECT_FALSE(segments.empty()) << recording;
    for (std::size_t i = 0; i < segments.size(); ++i) {
      const Description expected{segments[i].forwarded, segments[i].text};
      EXPECT_EQ(describe(parser, segments[i]), expected) << recording << ", segment " << i + 1;
    }
  }
}

TEST(Description, LogsEveryKindOfEventAndNoOther) {
  TestLog log;
  H323Parser parser;
  std::vector<std::size_t> seen(std::size(kEvents));
  for (Segment& segment : readSegments(kRandom)) {
    const Description description = describe(parser, segment);
    for (const std::string& event : log.take()) {
      const auto kind = std::find_if(std::begin(kEvents), std::end(kEvents),
                                     [&](const Event& known) { return known.describes(event, description.text); });
      ASSERT_NE(kind, std::end(kEvents)) << event << " for " << description;
      ++seen[static_cast<std::size_t>(kind - kEvents)];
    }
  }
  for (std::size_t i = 0; i < seen.size(); ++i) EXPECT_GT(seen[i], 0) << kEvents[i].beginning << kEvents[i].end;
}

// A trace is one event a segment, and one more in front for each tunnelled message.
TEST(Description, IsTracedAsRecorded) {
  TestLog log;
  log.setLevel(log4cxx::Level::getInfo());
  for (const char* call : kCalls) {
    H323Parser parser;
    parser.setTraceSignalling(true);
    std::string trace;
    for (Segment& segment : readSegments(call)) {
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
    std::ifstream file(TEST_FILES "/" + std::string(call) + ".trace");
    EXPECT_EQ(trace, std::string(std::istreambuf_iterator<char>(file), {}));
  }
}

// Media control channels are described like media channels, though no message has them described.
TEST(Description, OfAMediaControlChannelDiffersInItsNamesOnly) {
  TestLog log;
  H323Parser parser;
  int described = 0;
  int refused = 0;
  H245_MultimediaSystemControlMessage message;
  for (const Segment& segment : readSegments(kRandom)) {
    PPER_Stream stream(PBYTEArray(segment.payload.data() + kTpkt + 4, segment.payload.size() - kTpkt - 4));
    message.Decode(stream);
    const auto request = message.request();
    const auto channel = request ? request->openLogicalChannel() : std::nullopt;
    const auto parameters =
        channel ? channel->forwardLogicalChannelParameters().multiplexParameters().h2250LogicalChannelParameters()
                : std::nullopt;
    auto address = parameters ? parameters->mediaChannel() : std::nullopt;
    if (!address) continue;
    const auto renamed = [](std::string text, std::string_view from, std::string_view to) {
      if (const auto at = text.find(from); at != text.npos) text.replace(at, from.size(), to);
      return text;
    };
    log.take();
    PString media;
    parser.getMediaChannelAttributes(*address, media);
    const auto mediaEvents = log.take();
    PString control;
    parser.getMediaControlChannelAttributes(*address, control);
    const auto controlEvents = log.take();
    EXPECT_EQ(renamed(static_cast<const char*>(media), "rtp:", "rtcp:"), static_cast<const char*>(control));
    ASSERT_EQ(mediaEvents.size(), controlEvents.size());
    if (!mediaEvents.empty()) {
      EXPECT_EQ(renamed(mediaEvents[0], "MediaChannel", "MediaControlChannel"), controlEvents[0]);
    }
    ++(mediaEvents.empty() ? described : refused);
  }
  EXPECT_GT(described, 0);
  EXPECT_GT(refused, 0);
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
  const Description nothing;
  for (std::size_t size = 0; size < 4; ++size) EXPECT_EQ(changed(size, {}), nothing) << size;
  EXPECT_EQ(changed(whole, {{0, 2}}), nothing);
  EXPECT_EQ(changed(whole, {{2, 0}, {3, 0}}), nothing);

  const Description expected{true, call.text};
  EXPECT_EQ(changed(whole, {{1, 77}, {2, 0}, {3, 1}}), expected);
  EXPECT_EQ(changed(whole, {{2, 255}, {3, 255}}), expected);
  // What follows the message in its segment is read as information elements, and is none.
  EXPECT_EQ(changed(whole + 1, {}), expected);
  // A header alone: the type and the reference of the message before, which is not a message.
  EXPECT_EQ(changed(4, {}), (Description{false, call.text.substr(0, call.text.find("c:"))}));

  // The length is counted in 16 bits.
  PString text;
  Segment segment = call;
  segment.payload.resize(kTpkt + 65536 + 3);
  const auto parse = [&](std::size_t size) {
    return parser.parseH323(segment.payload.data(), static_cast<int>(size), kHeaderLength, segment.tx_ip, segment.rx_ip,
                            segment.tx_port, segment.rx_port, text);
  };
  EXPECT_FALSE(parse(kTpkt + 65536));
  EXPECT_FALSE(parse(kTpkt + 65536 + 3));
  EXPECT_FALSE(parse(kTpkt - 1));
  EXPECT_EQ(text, "");
}

TEST(Description, OnlyOfAMessageWhoseTypeAndBodyBelongTogether) {
  TestLog log;
  H323Parser parser;
  for (const Segment& original : readSegments(kRandom)) {
    if (!original.forwarded || original.text.find("\nc:") == std::string::npos) continue;
    for (const u_char type : {5, 2, 3, 1, 7, 13, 123, 98, 90, 110, 125, 0, 255}) {
      Segment segment = original;
      if (std::exchange(segment.payload[kMessageType], type) == type) continue;
      const auto reference = original.text.find("\nr:");
      const std::string expected =
          "t:" + std::to_string(type) + original.text.substr(reference, original.text.find("c:") - reference);
      EXPECT_EQ(describe(parser, segment), (Description{false, expected})) << original.text;
    }
  }
}

// Texts of the network are passed on as they are, but for what is behind a zero.
TEST(Description, TakesTheNumbersOfQ931ForMissingAliasesWhateverIsInThem) {
  TestLog log;
  H323Parser parser;
  using namespace std::string_view_literals;
  Segment setup = segmentOf(kRandom, "t:5\n", "\ns:\nd:\n");
  putElement(setup, kMessageType + 1, 108, "\x81 1\n\xff\xc3\n2\0003"sv);
  putElement(setup, kMessageType + 1, 112, "\x01\x81\t\xe2\x82"sv);
  const std::string expected = setup.text.replace(setup.text.find("s:\nd:\n"), 6, "s: 1\n\xff\xc3\n2\nd:\t\xe2\x82\n");
  EXPECT_EQ(describe(parser, setup), (Description{true, expected}));
  const auto events = log.take();
  EXPECT_TRUE(std::any_of(events.begin(), events.end(), [](const std::string& event) {
    return event.starts_with("DEBUG SETUP (Q931) Caller:  1\n");
  }));

  Segment information = segmentOf(kRandom, "t:123\n", "\ni:\n");
  putElement(information, kMessageType + 1, 112, "\x81#9*");
  information.text.insert(information.text.size() - 1, "#9*");
  EXPECT_EQ(describe(parser, information), (Description{true, information.text}));
}

// Whatever is cut off or turned over, the next whole message is described as if nothing had been. The maps apart, a
// parser has no memory.
TEST(Description, SurvivesDamage) {
  TestLog log;
  log.setLevel(log4cxx::Level::getFatal());
  H323Parser parser;
  parser.setTraceSignalling(true);  // printed as well, though for nobody to read
  std::mt19937 random(1);
  const Segment whole = segmentOf(kCalls[0], "t:5");
  auto segments = readSegments(kRandom);
  for (std::size_t i = 0; i < segments.size(); i += 97) {
    for (std::size_t size = kTpkt; size < segments[i].payload.size(); ++size) {
      Segment cut = segments[i];
      cut.payload.resize(size);
      cut.payload.shrink_to_fit();
      describe(parser, cut);

      Segment flipped = segments[i];
      for (int flips = 0; flips < 3; ++flips) {
        flipped.payload[kTpkt + 4 + random() % (flipped.payload.size() - kTpkt - 4)] ^= 1U << random() % 8;
      }
      describe(parser, flipped);
    }
    Segment again = whole;
    ASSERT_EQ(describe(parser, again), (Description{true, whole.text}));
  }
}

}  // namespace
