#include <gtest/gtest.h>
#include <pcap/pcap.h>

#include "support/Packets.h"

using namespace voip;

namespace {

using Items = std::vector<std::string>;

const Bytes kDatagram = Ip{}(udp(5000, text("media")));

Bytes vxlan(const Bytes& payload, int port = 4789, int flags = 8) {
  return Ip{}(udp(port, number(flags, 1) + zeros(7) + payload));
}

Bytes layers(int depth, Bytes frame) {
  while (depth-- > 0) frame = ethernet(0x0800, vxlan(frame));
  return frame;
}

Bytes ipv6(int next, const Bytes& payload) {
  return number(0x60, 1) + zeros(3) + number(payload.size(), 2) + number(next, 1) + zeros(33) + payload;
}

// The tunnels that real calls come in are in tests/integration/live/test_network.py; here is what only looks like one.
TEST(NetworkStack, UnwrapsWhatWrapsAndNothingElse) {
  const Bytes inner = ethernet(0x0800, kDatagram);
  const Bytes trailer = text("INVITE sip:trailer");
  const struct {
    const char* what;
    Bytes frame;
    std::string forwarded = "media";
  } cases[] = {
      {"one service tag and a trailer", ethernet(0x88A8, number(1, 2) + number(0x0800, 2) + kDatagram + trailer)},
      {"IPv6 with options in IP", ethernet(0x0800, Ip{.protocol = 41}(ipv6(60, number(4, 1) + zeros(7) + kDatagram)))},
      {"eight layers", layers(8, inner)},
      {"nine layers", layers(9, inner), std::string("\x08\0", 2)},
      {"RTP to the port of VXLAN", ethernet(0x0800, vxlan(inner, 4789, 0x80)), "\x80"},
      {"SIP to the port of GENEVE", ethernet(0x0800, Ip{}(udp(6081, text("INVITE sip:a@b")))), "INVITE"},
      {"a tunnel cut short", ethernet(0x0800, vxlan(zeros(12))), "\x08"},
      {"padding of a plain frame", ethernet(0x0800, kDatagram) + text("padding"), "mediapadding"},
  };
  for (const auto& one : cases) {
    Stack stack;
    stack.take(one.frame);
    ASSERT_EQ(stack.sink.items.size(), 1U) << one.what;
    EXPECT_EQ(stack.sink.items[0].substr(0, one.forwarded.size()), one.forwarded) << one.what;
    if (one.forwarded == "media") {
      EXPECT_EQ(stack.sink.items[0], "media") << one.what << ": a trailer is no part of it";
    }
  }
}

TEST(NetworkStack, PutsFragmentsTogether) {
  const Bytes whole = udp(5000, text(std::string(40, 'a') + std::string(40, 'b')));
  const auto piece = [&](std::size_t from, std::size_t to, int id = 7) {
    const int more = to < whole.size() ? 0x2000 : 0;
    return ethernet(0x0800, Ip{.id = id, .fragment = more + static_cast<int>(from / 8)}(
                                Bytes(whole.begin() + static_cast<long>(from), whole.begin() + static_cast<long>(to))));
  };
  Bytes contradicting = piece(24, 48);
  contradicting.back() ^= 1;
  const Bytes oddLength = piece(0, 13), beyond = ethernet(0x0800, Ip{.id = 7, .fragment = 0x1FFF}(zeros(24)));
  const struct {
    const char* what;
    std::vector<Bytes> fragments;
    std::size_t datagrams;
    std::uint64_t contradictory = 0, malformed = 0;
  } cases[] = {
      {"backwards", {piece(64, 88), piece(32, 64), piece(0, 32)}, 1},
      {"with duplicates and overlaps", {piece(0, 32), piece(0, 32), piece(24, 64), piece(48, 88)}, 1},
      {"with a hole", {piece(0, 32), piece(64, 88)}, 0},
      {"contradicting", {piece(0, 32), contradicting, piece(32, 88), piece(0, 32)}, 0, 1},
      {"behind the end",
       {piece(0, 88, 8), piece(64, 88), ethernet(0x0800, Ip{.id = 7, .fragment = 0x200B}(zeros(8)))},
       1,
       1},
      {"of two datagrams", {piece(0, 32), piece(0, 32, 9), piece(32, 88, 9), piece(32, 88)}, 2},
      {"malformed", {oddLength, beyond}, 0, 0, 2},
  };
  for (const auto& one : cases) {
    Stack stack({.decapsulate = true, .reassembleFragments = true});
    for (const Bytes& fragment : one.fragments) stack.take(fragment);
    EXPECT_EQ(stack.sink.items, Items(one.datagrams, std::string(40, 'a') + std::string(40, 'b'))) << one.what;
    EXPECT_EQ(stack.sink.counts[NetworkCount::kDatagramsContradictory], one.contradictory) << one.what;
    EXPECT_EQ(stack.sink.counts[NetworkCount::kFragmentsMalformed], one.malformed) << one.what;
    EXPECT_EQ(stack.sink.counts[NetworkCount::kFragmentsHeld] + one.datagrams, one.fragments.size()) << one.what;
  }
}

TEST(NetworkStack, BoundsWhatWaitsForFragments) {
  Stack stack;
  std::int64_t time = 0;
  for (int id = 0; id < 5'000; ++id) stack.take(ethernet(0x0800, Ip{.id = id, .fragment = 0x2000}(zeros(8))), time);
  EXPECT_EQ(stack.sink.counts[NetworkCount::kDatagramsDisplaced], 5'000U - FragmentReassembler::kMaxDatagrams);
  time += FragmentReassembler::kPatience + 1;
  stack.take(ethernet(0x0800, Ip{.id = 6'000, .fragment = 0x2000}(zeros(8))), time);
  EXPECT_EQ(stack.sink.counts[NetworkCount::kDatagramsTimedOut], FragmentReassembler::kMaxDatagrams);
  const std::uint64_t before = stack.sink.counts[NetworkCount::kDatagramsDisplaced];
  for (int id = 0; id < 400; ++id) {  // 64 KiB each
    stack.take(ethernet(0x0800, Ip{.id = id, .fragment = 0x3FF0}(zeros(8))), time);
  }
  EXPECT_GT(stack.sink.counts[NetworkCount::kDatagramsDisplaced], before + 100);
}

TEST(NetworkStack, DropsWhatWasSeenAMomentAgo) {
  const Bytes message = udp(5060, text("INVITE sip:alice@example.com SIP/2.0\r\n" + std::string(200, 'x')));
  Bytes otherEnd = message;
  otherEnd.back() = 'y';
  const auto plain = [](const Bytes& packet) { return ethernet(0x0800, packet); };
  const Bytes first = plain(Ip{.id = 5}(message));
  const struct {
    const char* what;
    Bytes second;
    std::int64_t later;
    bool isDuplicate;
    Bytes before = {};
  } cases[] = {
      {"another port", first, 1'000, true},
      {"padded there", first + zeros(6), 0, true},
      {"captured earlier", first, -50'000, true},
      {"behind a router", plain(Ip{.id = 5, .ttl = 63}(message)), 50'000, true},
      {"with a tag", ethernet(0x8100, number(7, 2) + number(0x0800, 2) + Ip{.id = 5}(message)), 0, true},
      {"in a tunnel", plain(vxlan(first)), 0, true},
      {"retransmitted", plain(Ip{.id = 6}(message)), 0, false},
      {"later", first, 50'001, false},
      {"another fragment", plain(Ip{.id = 5, .fragment = 0x2001}(message)), 0, false},
      {"not numbered", plain(Ip{.id = 0}(message)), 0, true, plain(Ip{.id = 0}(message))},
      {"not numbered and not the same", plain(Ip{.id = 0}(otherEnd)), 0, false, plain(Ip{.id = 0}(message))},
  };
  for (const auto& one : cases) {
    Stack stack;
    stack.take(one.before.empty() ? first : one.before, 1'000'000);
    stack.take(one.second, 1'000'000 + one.later);
    EXPECT_EQ(stack.sink.counts[NetworkCount::kDuplicatesDropped], one.isDuplicate ? 1U : 0U) << one.what;
  }
}

}  // namespace
