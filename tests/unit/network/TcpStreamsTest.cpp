#include <gtest/gtest.h>

#include <random>

#include "support/Packets.h"

using namespace voip;

namespace {

using Items = std::vector<std::string>;

std::string sip(const std::string& startLine, const std::string& body, const std::string& field = "Content-Length") {
  return startLine + "\r\nVia: SIP/2.0/TCP x\r\n" + field + ": " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string tpkt(const std::string& body) {
  const std::size_t length = body.size() + 4;
  return {std::string("\3\0", 2) + static_cast<char>(length >> 8) + static_cast<char>(length) + body};
}

std::string webSocket(const std::string& payload, int first = 0x81) {
  std::string frame{static_cast<char>(first),
                    static_cast<char>(0x80 + 126),
                    static_cast<char>(payload.size() >> 8),
                    static_cast<char>(payload.size()),
                    'k',
                    'e',
                    'y',
                    '!'};
  for (std::size_t i = 0; i < payload.size(); ++i) frame += static_cast<char>(payload[i] ^ "key!"[i % 4]);
  return frame;
}

const std::string kInvite = sip("INVITE tel:+1555 SIP/2.0", "v=0\r\no=- 1 1 IN IP4 10.0.0.1\r\n");
const std::string kRinging = sip("SIP/2.0 180 Ringing", "", "l");
const std::string kBye = sip("BYE sip:b@c SIP/2.0", std::string(300, '\n'), "L ");
const Items kSip = {kInvite, kRinging, kBye};
const std::string kSipStream = "\r\n\r\n" + kInvite + kRinging + "\r\n" + kBye;
const Items kH323 = {tpkt("setup"), tpkt(std::string(700, 'c')), tpkt("x")};
const std::string kH323Stream = kH323[0] + kH323[1] + kH323[2];
const std::string kHandshake = "GET /ws HTTP/1.1\r\nUpgrade: websocket\r\nSec-WebSocket-Protocol: chat, SIP\r\n\r\n";
const std::string kWebSocketStream = kHandshake + webSocket(kInvite.substr(0, 20), 0x01) + webSocket("ping", 0x89) +
                                     webSocket(kInvite.substr(20), 0x80) + webSocket(kRinging) + webSocket(kBye);

struct Follower {
  WritingSink sink;
  NetworkLimits limits;
  TcpStreams streams{sink, limits};
  FlowEnds ends{1, 2, 3, 4};

  Follower() = default;
  explicit Follower(const NetworkLimits& some) : limits(some) {}

  bool take(const FlowEnds& from, TcpSegment segment, const std::string& payload, std::int64_t captured,
            std::int64_t now) {
    const Bytes octets = text(payload);
    segment.payload = octets;
    return streams.follow(from, segment, captured, now);
  }

  bool segment(std::uint32_t sequence, const std::string& payload, std::int64_t time = 0, bool isSyn = false) {
    TcpSegment one;
    one.sequence = sequence;
    one.isSyn = isSyn;
    return take(ends, one, payload, time, time);
  }
};

const NetworkLimits kFew = {.streams = 16, .openings = 4};

/// An event of a stream.
struct Step {
  enum Kind { kSegment, kSyn, kFin, kReset, kAcknowledgement, kPause, kEnd };

  std::uint32_t at = 0;
  std::string octets = {};
  std::int64_t time = 0;
  Kind kind = kSegment;
  std::size_t missing = 0;    ///< octets of the segment that were not captured
  std::int64_t captured = 0;  ///< the capture time, where it differs from the time by this much

  void happenTo(Follower& follower) const {
    if (kind == kPause) {
      follower.streams.expire(time);
    } else if (kind == kEnd) {
      while (follower.streams.flush()) {
      }
    } else {
      TcpSegment one;
      one.sequence = at;
      one.isSyn = kind == kSyn;
      one.isFin = kind == kFin;
      one.isReset = kind == kReset;
      one.missing = missing;
      one.hasAcknowledged = kind == kAcknowledgement;
      one.acknowledged = at;
      follower.take(one.hasAcknowledged ? follower.ends.reversed() : follower.ends, one, octets, time + captured, time);
    }
  }
};

struct Case {
  const char* what;
  std::vector<Step> steps;
  Items messages;
};

std::string brief(const Items& items) {
  std::string all;
  for (const std::string& item : items) all += item.substr(0, 9) + "... ";
  return all;
}

void check(const Case& one) {
  for (const std::size_t work : {kFew.work, std::size_t{1}}) {
    NetworkLimits limits = kFew;
    limits.work = work;
    Follower follower(limits);
    for (const Step& step : one.steps) {
      step.happenTo(follower);
      while (follower.streams.expire(step.time)) {
      }
    }
    EXPECT_TRUE(follower.sink.items == one.messages)
        << one.what << ", work " << work << ": " << brief(follower.sink.items) << "instead of " << brief(one.messages);
  }
}

std::uint32_t after(const std::string& text) {
  return static_cast<std::uint32_t>(100 + text.size());
}

// The messages do not depend on the division into segments, their order and their repetition.
TEST(TcpStreams, FindMessagesWhereverSegmentsCut) {
  std::mt19937 random(1);
  const std::pair<std::string, Items> streams[] = {{kSipStream, kSip}, {kH323Stream, kH323}, {kWebSocketStream, kSip}};
  for (const auto& [stream, messages] : streams) {
    for (int round = 0; round < 300; ++round) {
      NetworkLimits limits = kFew;
      if (round % 3 == 0) limits.work = 1;
      Follower follower(limits);
      const std::uint32_t first = round % 2 == 0 ? 0U - random() % 500 : random();  // half of them wrap around
      follower.segment(first - 1, "", 0, true);
      struct Piece {
        std::size_t from, to;
      };
      std::vector<Piece> pieces;
      const std::size_t longest = round < 20 ? 1 : 1 + random() % 900;
      for (std::size_t at = 0; at < stream.size();) {
        const std::size_t to = std::min(stream.size(), at + 1 + random() % longest);
        pieces.push_back({at - std::min<std::size_t>(at, random() % 4 == 0 ? random() % 50 : 0), to});  // overlaps
        if (random() % 5 == 0) pieces.push_back({at, to});                                              // retransmitted
        at = to;
      }
      for (std::size_t i = 0; i + 1 < pieces.size(); ++i) {
        if (random() % 3 == 0) std::swap(pieces[i], pieces[i + 1]);
      }
      for (const Piece& piece : pieces) {
        follower.segment(first + static_cast<std::uint32_t>(piece.from),
                         stream.substr(piece.from, piece.to - piece.from));
      }
      while (follower.streams.expire(0)) {
      }
      ASSERT_EQ(follower.sink.items, messages) << "round " << round;
      ASSERT_EQ(follower.sink.counts[NetworkCount::kStreamGaps] + follower.sink.counts[NetworkCount::kStreamsOutOfStep],
                0U);
    }
  }
}

TEST(TcpStreams, GoOnAfterALoss) {
  const std::string half = kInvite.substr(30);
  const std::string tail = kH323[1].substr(300);
  const std::string trap = sip("MESSAGE sip:a@b SIP/2.0", "BYE sip:not@sent SIP/2.0\r\nis only a line\r\n");
  const std::string prack = "PRACK sip:b SIP/2.0\r\nVia: x\r\nCSeq: 7\r\n PRACK\r\nl: 0\r\n\r\n";
  const std::string keepAlive("\3\0\0\4", 4), frame = webSocket(kBye);
  const Case cases[] = {
      {"first seen in the middle of a message", {{100, half}, {after(half), kRinging + kBye}}, {kRinging, kBye}},
      {"first seen in the middle of a TPKT", {{100, tail}, {after(tail), kH323[2]}}, {kH323[2]}},
      {"first seen in the middle of a WebSocket", {{100, frame.substr(9)}, {after(frame), frame}}, {kBye}},
      {"first seen in the middle, with a line of a body", {{100, trap.substr(trap.find("BYE"))}}, {}},
      {"first seen at a keep-alive", {{100, "\r\n\r\n"}, {104, "\r\n\r\n" + kInvite}}, {kInvite}},
      {"first seen inside a start line", {{100, prack.substr(2) + prack}, {after(prack) + 900, prack.substr(2)}}, {}},
      {"a segment begins inside a start line",
       {{100, kInvite}, {after(kInvite) + 2, prack.substr(2) + prack}, {0, "", 2'000'000, Step::kPause}},
       {kInvite, prack}},
      {"a segment is lost",
       {{100, kInvite + kRinging.substr(0, 9)},
        {1100, "x: y\r\n\r\n" + kBye},
        {1500, "", 1},
        {100 + 2000, kRinging, 3'000'000},
        {after(std::string(2000, ' ') + kRinging), kBye, 6'000'000}},
       {kInvite, kBye, kRinging, kBye}},
      {"the middle of a message with a start line in its body is lost",
       {{100, trap.substr(0, trap.size() - 50)},
        {after(trap) - 40, trap.substr(trap.size() - 40) + kBye},
        {0, "", 2'000'000, Step::kPause}},
       {kBye}},
      {"its header is lost",
       {{100, kInvite}, {after(kInvite) + 60, trap.substr(60) + kBye}, {0, "", 2'000'000, Step::kPause}},
       {kInvite, kBye}},
      {"a segment with the end of a TPKT is lost",
       {{100, kH323[0] + kH323[1].substr(0, 9)}, {1100, tail + kH323[2]}, {100, kH323[0], 3'000'000}},
       {kH323[0], kH323[2]}},
      {"the middle of a TPKT is lost, and what is left looks like TPKTs",
       {{100, kH323[0] + tpkt(std::string(60, 'x') + kH323[0] + kH323[0]).substr(0, 20)},
        {after(kH323[0]) + 40, tpkt(std::string(60, 'x') + kH323[0] + kH323[0]).substr(40) + kH323[2]},
        {0, "", 2'000'000, Step::kPause}},
       {kH323[0], kH323[2]}},
      {"a TPKT in two segments after a loss",
       {{100, kH323[0]}, {500, kH323[1].substr(0, 300)}, {800, tail}, {0, "", 2'000'000, Step::kPause}},
       {kH323[0], kH323[1]}},
      {"a stray segment, then part of a WebSocket is lost",
       {{100, kHandshake + frame.substr(0, 99)},
        {after(kHandshake) + 400, "stray" + frame},
        {0, "", 2'000'000, Step::kPause}},
       {kBye}},
      {"the first frames of a WebSocket are lost",
       {{99, "", 0, Step::kSyn}, {800, frame + webSocket("pong", 0x8A) + frame}, {0, "", 2'000'000, Step::kPause}},
       {kBye, kBye}},
      {"TPKTs without content",
       {{99, "", 0, Step::kSyn}, {100, keepAlive}, {104, keepAlive + kH323[0] + keepAlive + kH323[2]}},
       {kH323[0], kH323[2]}},
      {"not captured to the end",
       {{100, kInvite + kBye.substr(0, 50), 0, Step::kSegment, kBye.size() - 50}, {after(kInvite + kBye), kRinging}},
       {kInvite, kRinging}},
      {"no octet captured, ahead of the others",
       {{100, kInvite}, {after(kInvite) + 10, kRinging}, {after(kInvite), "", 0, Step::kSegment, 10}},
       {kInvite, kRinging}},
      {"the lost segment comes at last",
       {{100, kInvite}, {after(kInvite + kRinging), kBye}, {after(kInvite), kRinging, 1'900'000}},
       kSip},
      {"a pause ends the wait",
       {{100, kInvite}, {after(kInvite) + 9, kBye}, {0, "", 1'999'999, Step::kPause}},
       {kInvite}},
      {"the end of the run",
       {{100, kInvite}, {after(kInvite) + 9, kBye}, {0x70000000, kRinging}, {0, "", 0, Step::kEnd}},
       {kInvite, kBye, kRinging}},
      {"the other side has it",
       {{100, kInvite}, {after(kInvite) + 9, kBye}, {after(kInvite) + 9, "", 1, Step::kAcknowledgement}},
       {kInvite, kBye}},
      {"the other side has not",
       {{100, kInvite}, {after(kInvite) + 9, kBye}, {after(kInvite) + 8, "", 1, Step::kAcknowledgement}},
       {kInvite}},
      {"the system clock is set back",
       {{100, kInvite},
        {after(kInvite) + 9, kBye},
        {after(kInvite + kBye) + 9, kBye, 2'000'000, Step::kSegment, 0, -3'600'000'000}},
       {kInvite, kBye, kBye}},
  };
  for (const Case& one : cases) check(one);

  Follower follower;
  for (const Step& step :
       {Step{100, kInvite, 10}, Step{after(kInvite) + 9, kBye, 20}, Step{0, "", 9'000'000, Step::kPause}}) {
    step.happenTo(follower);
  }
  EXPECT_EQ(follower.sink.times, (std::vector<std::int64_t>{10, 20})) << "a message has its own capture time";
}

// One frame with unexpected numbers may be forged, so the stream continues.
TEST(TcpStreams, LetNoStrangerChangeTheNumbers) {
  const std::uint32_t second = after(kInvite), third = second + static_cast<std::uint32_t>(kRinging.size());
  const std::uint32_t far = 0x70000000;
  const std::string junk(400, 'x');
  const auto between = [&](const std::vector<Step>& forged) {
    std::vector<Step> steps = {{99, "", 0, Step::kSyn}, {100, kInvite}};
    steps.insert(steps.end(), forged.begin(), forged.end());
    steps.push_back({second, kRinging, 5'000'000});
    steps.push_back({third, kBye, 5'000'000});
    return steps;
  };
  const Case cases[] = {
      {"SYN", between({{far, "", 0, Step::kSyn}}), kSip},
      {"SYN with payload", between({{far, junk, 0, Step::kSyn}}), kSip},
      {"SYN nearby", between({{5000, "", 0, Step::kSyn}}), kSip},
      {"SYN before all", {{far, "", 0, Step::kSyn}, {100, kInvite}, {second, kRinging}}, {kInvite, kRinging}},
      {"far segments", between({{far, junk}, {far / 2, kBye}}), kSip},
      {"a segment far ahead in the window, and a pause", between({{500'000, junk}, {0, "", 4'000'000, Step::kPause}}),
       kSip},
      {"RST in the window", between({{second + 1, "", 0, Step::kReset}, {99, "", 0, Step::kReset}}), kSip},
      {"FIN in the window", between({{second + 1, "", 0, Step::kFin}}), kSip},
      {"ports used again", {{100, kInvite}, {far, "", 0, Step::kSyn}, {far + 1, kRinging}}, {kInvite, kRinging}},
      {"another connection without SYN",
       {{100, kInvite}, {far, kRinging.substr(0, 9)}, {far + 9, kRinging.substr(9) + kBye}},
       kSip},
      {"ports used again after RST",
       {{100, kInvite}, {second, "", 0, Step::kReset}, {far, kRinging}},
       {kInvite, kRinging}},
      {"ports used again after FIN",
       {{100, kInvite.substr(0, 50), 0, Step::kSegment}, {150, kInvite.substr(50), 0, Step::kFin}, {far, kRinging}},
       {kInvite, kRinging}},
      {"FIN before the octets",
       {{100, kInvite}, {third, kBye, 0, Step::kFin}, {second, kRinging}, {far, kInvite}},
       {kInvite, kRinging, kBye, kInvite}},
  };
  for (const Case& one : cases) check(one);
}

TEST(TcpStreams, ReadHeadersOfAllKinds) {
  const std::string body = "v=0\r\n";
  const std::string start = "INVITE sip:a@b SIP/2.0\r\n";
  const std::string headers[] = {
      start + "Content-Length:\r\n \t5\r\n\r\n",     start + "Subject: folded\r\n Content-Length: 99\r\nl : 5\r\n\r\n",
      start + "Via: x\r\nCONTENT-LENGTH: 5\r\n\r\n", "INVITE sip:a@b SIP/2.0\nContent-Length: 5\n\n",
      "SIP/2.0 200 OK\nl:5\nVia: x\n\r\n",
  };
  for (const std::string& header : headers) {
    for (const std::size_t cut : {header.size() - 1, header.size() - 2, header.size() + 2, std::size_t{30}}) {
      const std::string stream = header + body + "\r\n\r\n" + kBye;
      check(
          {header.c_str(),
           {{99, "", 0, Step::kSyn}, {100, stream.substr(0, cut)}, {after(stream.substr(0, cut)), stream.substr(cut)}},
           {header + body, kBye}});
    }
  }
}

TEST(TcpStreams, RefuseForeignStreamsAndLongMessages) {
  for (const char* stream : {"GET / HTTP/1.1\r\n\r\n", "\x16\x03\x01 handshake", "POST http://x/ HTTP/1.1\r\n",
                             "220 x\r\n", "INVITE sip:a@b SIP/3.0\r\n\r\n", "\3\1\0\x20", "SSH-2.0-x\r\n"}) {
    Follower follower;
    follower.segment(0, "", 0, true);
    EXPECT_FALSE(follower.segment(1, stream)) << stream;
    EXPECT_FALSE(follower.segment(1 + static_cast<std::uint32_t>(std::strlen(stream)), kInvite)) << stream;
    EXPECT_EQ(follower.sink.items, Items{}) << stream;
    EXPECT_EQ(follower.streams.memoryUsed(), 0U);
  }
  const IpAddress ipv6 = IpAddress::read(Ip6::address(1).data());
  for (const auto& [address, limit] : {std::pair{IpAddress(1), kMaxMessage}, std::pair{ipv6, kMaxIpv6Message}}) {
    const std::string fits = sip("INFO sip:a SIP/2.0", std::string(limit - 65, 'x'));
    ASSERT_EQ(fits.size(), limit);
    const std::string tooLong = sip("INFO sip:a SIP/2.0", std::string(limit - 64, 'x'));
    for (const std::string& stream :
         {fits + tooLong + kBye, kHandshake + webSocket(fits) + webSocket(tooLong) + webSocket(kBye)}) {
      Follower follower;
      follower.ends.source = follower.ends.destination = address;
      for (std::size_t at = 0; at < stream.size(); at += 1000) {
        EXPECT_TRUE(follower.segment(static_cast<std::uint32_t>(at), stream.substr(at, 1000)));
      }
      EXPECT_EQ(follower.sink.items, (Items{fits, kBye}));
      EXPECT_EQ(follower.sink.counts[NetworkCount::kStreamMessages], 2U);
      EXPECT_EQ(follower.sink.counts[NetworkCount::kStreamMessagesTooLong], 1U);
    }
  }
}

TEST(TcpStreams, GiveUpWhatIsSeldomATpkt) {
  Follower follower;
  std::uint32_t at = 100;
  const auto take = [&](const std::string& octets) {
    at += static_cast<std::uint32_t>(octets.size());
    return follower.segment(at - static_cast<std::uint32_t>(octets.size()), octets);
  };
  EXPECT_TRUE(take(kH323[0]));
  for (int i = 0; i < 100; ++i) take(i % 9 == 0 ? kH323[2] : "\x17 fast path");
  EXPECT_LT(follower.sink.counts[NetworkCount::kStreamsOutOfStep], 30U);
  EXPECT_FALSE(take(kH323[0]));
}

TEST(TcpStreams, LimitWhatOneFrameCosts) {
  Follower follower;
  follower.segment(0, kInvite);
  for (std::uint32_t i = 1; i <= 500; ++i) follower.segment(i * 1000, kBye, 1);
  const auto& items = follower.sink.items;
  std::size_t before = items.size();
  int calls = 0;
  for (; items.size() < 501 && calls < 100; ++calls) {
    follower.segment(900'000, "x", 3'000'000 + calls);
    ASSERT_LE(items.size() - before, 70U);
    before = items.size();
  }
  EXPECT_EQ(items.size(), 501U);
  EXPECT_GT(calls, 5);
}

std::string repeated(const std::string& message, std::size_t count) {
  std::string all;
  for (; count > 0; --count) all += message;
  return all;
}

// What a call leaves of a long segment follows with later calls, before the next segment, with its own capture time.
TEST(TcpStreams, DivideLongSegments) {
  constexpr std::uint32_t kEach = 1'000, kNew = 0x70000000;
  NetworkLimits limits;
  limits.backlogMemory = 200'000;
  Follower follower(limits);
  auto& items = follower.sink.items;
  auto& counts = follower.sink.counts;
  auto& times = follower.sink.times;
  std::string many = repeated(kRinging, kEach);
  std::uint32_t at = 100;
  const auto take = [&](std::int64_t time) {
    follower.segment(at, many, time);
    at += static_cast<std::uint32_t>(many.size());
  };
  const auto goOn = [&] {
    for (bool hasMore = true; hasMore;) {
      const std::size_t before = items.size();
      hasMore = follower.streams.expire(40);
      ASSERT_LE(items.size() - before, 100U);
    }
  };
  for (const bool isSynSeen : {true, false}) {
    take(10);
    take(20);
    Step{at, "", 30, Step::kFin}.happenTo(follower);
    // The ports are used again at once, and segments change places.
    if (isSynSeen) follower.segment(kNew - 1, "", 30, true);
    if (isSynSeen) follower.segment(kNew + static_cast<std::uint32_t>(kInvite.size()), kBye, 30);
    follower.segment(kNew, kInvite, 30);
    if (!isSynSeen) follower.segment(kNew + static_cast<std::uint32_t>(kInvite.size()), kBye, 30);
    goOn();
    Items expected(2 * kEach, kRinging);
    expected.insert(expected.end(), {kInvite, kBye});
    EXPECT_EQ(items, expected) << isSynSeen;
    EXPECT_EQ(std::count(times.begin(), times.begin() + kEach, 10), kEach);
    EXPECT_EQ(std::count(times.begin() + kEach, times.begin() + 2 * kEach, 20), kEach);
    Step{kNew + static_cast<std::uint32_t>(kInvite.size() + kBye.size()), "", 40, Step::kFin}.happenTo(follower);
    EXPECT_EQ(follower.streams.streamCount(), 0U) << "the FIN counts when all before it was passed on";
    items.clear();
    times.clear();
  }
  EXPECT_EQ(counts[NetworkCount::kStreamGaps], 0U);

  follower.segment(100, repeated(kH323[2], kEach));
  goOn();
  EXPECT_EQ(items, Items(kEach, kH323[2])) << "what the sink does with a TPKT is limited as well";
  follower.ends.source = 9;
  for (std::int64_t time = 50; time < 70; ++time) {
    take(time);
    ASSERT_LE(follower.streams.memoryUsed(), limits.backlogMemory + many.size());
  }
  while (follower.streams.flush()) {
  }
  EXPECT_GT(counts[NetworkCount::kStreamGaps], 10U) << "the oldest octets are lost";
  EXPECT_EQ(std::count(times.begin(), times.end(), 69), kEach) << "the latest are not";
  EXPECT_EQ(std::count(items.begin(), items.end(), kRinging) + kEach, static_cast<std::ptrdiff_t>(items.size()));
}

// Two streams that flood delay no other one, and lose octets before any stream is displaced.
TEST(TcpStreams, ServeStreamsInTurn) {
  NetworkLimits limits;
  limits.streamMemory = 500'000;
  Follower follower(limits);
  auto& items = follower.sink.items;
  auto& counts = follower.sink.counts;
  const auto from = [&](std::uint32_t host) { follower.ends.source = host; };
  from(4);
  follower.segment(100, kInvite.substr(0, 50));
  const std::string many = repeated(kRinging, 900);
  for (std::uint32_t i = 0; i < 20; ++i) {
    for (const std::uint32_t host : {1, 2}) {
      from(host);
      follower.segment(100 + i * static_cast<std::uint32_t>(many.size()), many);
      ASSERT_LE(follower.streams.memoryUsed(), limits.streamMemory);
    }
  }
  const std::uint64_t gaps = counts[NetworkCount::kStreamGaps];
  EXPECT_GT(gaps, 10U);
  EXPECT_EQ(counts[NetworkCount::kStreamsDisplaced], 0U);
  from(3);
  follower.segment(100, repeated(kBye, 100));
  from(4);
  follower.segment(150, kInvite.substr(50));
  follower.segment(after(kInvite) + 9, kBye);
  Step{after(kInvite) + 9, "", 1, Step::kAcknowledgement}.happenTo(follower);
  for (int i = 0; i < 4; ++i) follower.streams.expire(2);
  EXPECT_EQ(std::count(items.begin(), items.end(), kBye), 101);
  EXPECT_EQ(std::count(items.begin(), items.end(), kInvite), 1);
  EXPECT_EQ(counts[NetworkCount::kStreamGaps], gaps + 1);
}

TEST(TcpStreams, LeaveInTheOrderOfTheirUse) {
  NetworkLimits limits;
  limits.streams = 100;
  limits.openings = 10;
  limits.streamMemory = 100'000;
  Follower follower(limits);
  const auto& displaced = follower.sink.counts[NetworkCount::kStreamsDisplaced];
  const auto from = [&](std::uint32_t host) { follower.ends.source = host; };

  from(1);
  follower.segment(100, kInvite);
  for (std::uint32_t host = 10; host < 1'000; ++host) {
    from(host);
    follower.segment(0, "", 2'000'000, true);
  }
  EXPECT_EQ(follower.streams.streamCount(), 11U) << "SYNs alone take few places";
  for (std::uint32_t host = 10; host < 1'000; ++host) {
    from(host);
    follower.segment(0, "", 3'000'000, true);
    follower.segment(1, host % 2 == 0 ? "GET / HTTP/1.1\r\n" : "INV", 3'000'000);
  }
  EXPECT_EQ(follower.streams.streamCount(), limits.streams);
  EXPECT_GT(displaced, 0U);
  for (std::uint32_t host = 2'000; host < 2'050; ++host) {  // they end
    from(host);
    follower.segment(100, kInvite, 4'000'000);
    Step{after(kInvite), "", 4'000'000, Step::kFin}.happenTo(follower);
  }
  EXPECT_LT(follower.streams.streamCount(), limits.streams);
  EXPECT_EQ(follower.sink.counts[NetworkCount::kStreamGaps], 0U);
  for (std::uint32_t host = 3'000; host < 3'020; ++host) {  // they keep much
    from(host);
    follower.segment(100, kInvite + kBye.substr(0, 40), 5'000'000);
    for (std::uint32_t i = 1; i < 20; ++i) follower.segment(i * 10'000, std::string(1000, 'x'), 5'000'000);
    ASSERT_LE(follower.streams.memoryUsed(), limits.streamMemory);
  }
  EXPECT_GT(follower.sink.counts[NetworkCount::kStreamGaps], 10U) << "early segments are lost with their streams";
  follower.sink.items.clear();
  from(1);
  follower.segment(after(kInvite), kBye.substr(40), 6'000'000);
  follower.segment(after(kInvite + kBye.substr(40)), kRinging, 6'000'000);
  EXPECT_EQ(follower.sink.items, Items{kRinging}) << "the first stream is still there, out of step for a moment";
}

TEST(TcpStreams, AreBounded) {
  Follower follower;
  const NetworkLimits& limits = follower.limits;
  // The data that waits for missing segments is limited, for a stream and for all streams.
  const std::string piece(1000, 'x');
  for (std::uint32_t host = 0; host < 400; ++host) {
    follower.ends.source = host;
    follower.segment(0, kInvite, 1);
    for (std::uint32_t at = 0; at < 600; ++at) follower.segment(5'000 + at * 1'001, piece, 1);
    ASSERT_LE(follower.streams.memoryUsed(),
              std::min<std::size_t>((host + 1) * (limits.earlyMemory + 1'000), limits.streamMemory));
  }
  EXPECT_GT(follower.streams.memoryUsed(), limits.streamMemory - limits.earlyMemory);
  EXPECT_GT(follower.sink.counts[NetworkCount::kStreamGaps], 0U);
}

}  // namespace
