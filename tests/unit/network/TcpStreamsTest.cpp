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
  TcpStreams streams{sink};
  FlowEnds ends{1, 2, 3, 4};

  bool segment(std::uint32_t sequence, const std::string& payload, std::int64_t time = 0, bool isSyn = false) {
    const Bytes octets = text(payload);
    TcpSegment one;
    one.sequence = sequence;
    one.isSyn = isSyn;
    one.payload = octets;
    return streams.follow(ends, one, time);
  }
};

// Wherever segments cut, in whatever order they come and how often, the messages are the same.
TEST(TcpStreams, FindMessagesWhereverSegmentsCut) {
  std::mt19937 random(1);
  const std::pair<std::string, Items> streams[] = {{kSipStream, kSip}, {kH323Stream, kH323}, {kWebSocketStream, kSip}};
  for (const auto& [stream, messages] : streams) {
    for (int round = 0; round < 300; ++round) {
      Follower follower;
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
        if (random() % 5 == 0) pieces.push_back({at, to});                                              // comes again
        at = to;
      }
      for (std::size_t i = 0; i + 1 < pieces.size(); ++i) {
        if (random() % 3 == 0) std::swap(pieces[i], pieces[i + 1]);
      }
      for (const Piece& piece : pieces) {
        follower.segment(first + static_cast<std::uint32_t>(piece.from),
                         stream.substr(piece.from, piece.to - piece.from));
      }
      ASSERT_EQ(follower.sink.items, messages) << "round " << round;
      ASSERT_EQ(follower.sink.counts[NetworkCount::kStreamGaps] + follower.sink.counts[NetworkCount::kStreamsOutOfStep], 0U);
    }
  }
}

TEST(TcpStreams, GoOnBehindWhatIsMissing) {
  struct Segment {
    std::uint32_t at;
    std::string octets;
    std::int64_t time = 0;
  };
  const auto behind = [](const std::string& text) { return static_cast<std::uint32_t>(100 + text.size()); };
  const std::string half = kInvite.substr(30);
  const std::string tail = kH323[1].substr(300);
  const struct {
    const char* what;
    std::vector<Segment> segments;
    Items messages;
  } cases[] = {
      {"first seen in the middle of a message", {{100, half}, {behind(half), kRinging + kBye}}, {kRinging, kBye}},
      {"first seen in the middle of a TPKT", {{100, tail}, {behind(tail), kH323[2]}}, {kH323[2]}},
      {"a segment is lost",
       {{100, kInvite + kRinging.substr(0, 9)},
        {1100, "x: y\r\n\r\n" + kBye},
        {1500, "", 1},
        {100 + 2000, kRinging, 3'000'000},
        {behind(std::string(2000, ' ') + kRinging), kBye, 6'000'000}},
       {kInvite, kBye, kRinging, kBye}},
      {"a segment with the end of a TPKT is lost",
       {{100, kH323[0] + kH323[1].substr(0, 9)}, {1100, tail + kH323[2]}, {100, kH323[0], 3'000'000}},
       {kH323[0], kH323[2]}},
      {"ports used again", {{100, kInvite}, {0x70000000, kRinging}}, {kInvite, kRinging}},
      {"the lost segment comes at last",
       {{100, kInvite}, {behind(kInvite + kRinging), kBye}, {behind(kInvite), kRinging, 1'900'000}},
       kSip},
  };
  for (const auto& one : cases) {
    Follower follower;
    for (const Segment& segment : one.segments) follower.segment(segment.at, segment.octets, segment.time);
    EXPECT_EQ(follower.sink.items, one.messages) << one.what;
  }
}

TEST(TcpStreams, RefuseWhatIsNeitherAndTellWhatDoesNotFit) {
  for (const char* stream : {"GET / HTTP/1.1\r\n\r\n", "\x16\x03\x01 handshake", "POST http://x/ HTTP/1.1\r\n",
                             "220 x\r\n", "INVITE sip:a@b SIP/3.0\r\n\r\n", "\3\1\0\x20", "SSH-2.0-x\r\n"}) {
    Follower follower;
    follower.segment(0, "", 0, true);
    EXPECT_FALSE(follower.segment(1, stream)) << stream;
    EXPECT_FALSE(follower.segment(1 + static_cast<std::uint32_t>(std::strlen(stream)), kInvite)) << stream;
    EXPECT_EQ(follower.sink.items, Items{}) << stream;
    EXPECT_EQ(follower.streams.memoryUsed(), 0U);
  }
  const std::string fits = sip("INFO sip:a SIP/2.0", std::string(kMaxMessage - 65, 'x'));
  ASSERT_EQ(fits.size(), kMaxMessage);
  const std::string stream = fits + sip("INFO sip:a SIP/2.0", std::string(kMaxMessage - 64, 'x')) + kBye;
  Follower follower;
  for (std::size_t at = 0; at < stream.size(); at += 1000) {
    EXPECT_TRUE(follower.segment(static_cast<std::uint32_t>(at), stream.substr(at, 1000)));
  }
  EXPECT_EQ(follower.sink.items, (Items{fits, kBye}));
  EXPECT_EQ(follower.sink.counts[NetworkCount::kStreamMessagesTooLong], 1U);
}

TEST(TcpStreams, AreBounded) {
  Follower follower;
  for (std::uint32_t host = 0; host < TcpStreams::kMaxStreams + 10; ++host) {
    follower.ends.source = host;
    follower.segment(0, "", 0, true);
  }
  EXPECT_EQ(follower.streams.streamCount(), TcpStreams::kMaxStreams);
  EXPECT_EQ(follower.sink.counts[NetworkCount::kStreamsDisplaced], 10U);
  // Whatever is missing, a stream waits with 256 KiB at most, and all of them with 64 MB.
  const std::string piece(1000, 'x');
  for (std::uint32_t host = 0; host < 400; ++host) {
    follower.ends.source = host;
    follower.segment(0, kInvite, 1);
    for (std::uint32_t at = 0; at < 600; ++at) follower.segment(5'000 + at * 1'001, piece, 1);
    ASSERT_LE(follower.streams.memoryUsed(),
              std::min<std::size_t>((host + 1) * TcpStreams::kMaxStreamMemory, TcpStreams::kMaxMemory));
  }
  EXPECT_GT(follower.streams.memoryUsed(), TcpStreams::kMaxMemory - TcpStreams::kMaxStreamMemory);
  EXPECT_GT(follower.sink.counts[NetworkCount::kStreamGaps], 0U);
}

}  // namespace
