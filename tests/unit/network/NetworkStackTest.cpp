#include <gtest/gtest.h>
#include <pcap/pcap.h>

#include "Packets.h"

namespace {

using Items = std::vector<std::string>;

const Bytes kDatagram = Ip{}(udp(5000, text("media")));

Bytes vxlan(const Bytes& payload, int port = 4789, int flags = 8) {
  return Ip{}(udp(port, number(flags, 1) + zeros(7) + payload));
}

Bytes gre(int flags, int type, const Bytes& payload) {
  return Ip{.protocol = 47}(number(flags, 2) + number(type, 2) + payload);
}

Bytes layers(int depth, Bytes frame) {
  while (depth-- > 0) frame = ethernet(0x0800, vxlan(frame));
  return frame;
}

Bytes ipv6(int next, const Bytes& payload) {
  return number(0x60, 1) + zeros(3) + number(payload.size(), 2) + number(next, 1) + zeros(33) + payload;
}

// Everything that a program of the network's could have wrapped around a datagram is taken off; what only looks like
// it is left alone.
TEST(NetworkStack, UnwrapsWhatWrapsAndNothingElse) {
  const Bytes inner = ethernet(0x0800, kDatagram);
  const Bytes label = number(0x00010040, 4);
  const Bytes lastLabel = number(0x00010140, 4);
  const Bytes trailer = text("INVITE sip:trailer");
  const struct {
    const char* what;
    Bytes frame;
    int linkType = DLT_EN10MB;
    std::string forwarded = "media";
  } cases[] = {
      {"cooked", zeros(14) + number(0x0800, 2) + kDatagram, DLT_LINUX_SLL},
      {"cooked, version 2", number(0x0800, 2) + zeros(18) + kDatagram, DLT_LINUX_SLL2},
      {"raw", kDatagram, DLT_RAW},
      {"loopback", number(0x02000000, 4) + kDatagram, DLT_NULL},
      {"one service tag", ethernet(0x88A8, number(1, 2) + number(0x0800, 2) + kDatagram + trailer)},
      {"three tags",
       ethernet(0x9100, number(0x000181000002, 6) + number(0x8100, 2) + number(3, 2) + number(0x0800, 2) + kDatagram)},
      {"MPLS", ethernet(0x8847, label + lastLabel + kDatagram)},
      {"MPLS with a control word", ethernet(0x8847, lastLabel + zeros(4) + inner + trailer)},
      {"PPPoE", ethernet(0x8864, number(0x110000010000 + kDatagram.size() + 2, 6) + number(0x0021, 2) + kDatagram)},
      {"IP in IP in IPv6", ethernet(0x86DD, ipv6(4, kDatagram))},
      {"IPv6 with options in IP", ethernet(0x0800, Ip{.protocol = 41}(ipv6(60, number(4, 1) + zeros(7) + kDatagram)))},
      {"GRE with all fields", ethernet(0x0800, gre(0xB000, 0x0800, zeros(12) + kDatagram))},
      {"GRE with Ethernet", ethernet(0x0800, gre(0, 0x6558, inner))},
      {"ERSPAN I", ethernet(0x0800, gre(0, 0x88BE, inner))},
      {"ERSPAN II", ethernet(0x0800, gre(0x1000, 0x88BE, zeros(4) + number(0x10, 1) + zeros(7) + inner + trailer))},
      {"ERSPAN III", ethernet(0x0800, gre(0x1000, 0x22EB, zeros(4) + number(0x20, 1) + zeros(11) + inner))},
      {"ERSPAN III with its subheader",
       ethernet(0x0800, gre(0x1000, 0x22EB, zeros(4) + number(0x20, 1) + zeros(9) + number(1, 2) + zeros(8) + inner))},
      {"VXLAN", ethernet(0x0800, vxlan(inner))},
      {"GENEVE with options", ethernet(0x0800, Ip{}(udp(6081, number(0x01006558, 4) + zeros(8) + inner)))},
      {"eight layers", layers(8, inner)},
      {"nine layers", layers(9, inner), DLT_EN10MB, std::string("\x08\0", 2)},
      {"RTP to the port of VXLAN", ethernet(0x0800, vxlan(inner, 4789, 0x80)), DLT_EN10MB, "\x80"},
      {"SIP to the port of GENEVE", ethernet(0x0800, Ip{}(udp(6081, text("INVITE sip:a@b")))), DLT_EN10MB, "INVITE"},
      {"a tunnel cut short", ethernet(0x0800, vxlan(zeros(12))), DLT_EN10MB, "\x08"},
      {"padding of a plain frame", ethernet(0x0800, kDatagram) + text("padding"), DLT_EN10MB, "mediapadding"},
  };
  for (const auto& one : cases) {
    Stack stack;
    stack.take(one.frame, 0, one.linkType);
    ASSERT_EQ(stack.sink.items.size(), 1U) << one.what;
    EXPECT_EQ(stack.sink.items[0].substr(0, one.forwarded.size()), one.forwarded) << one.what;
    if (one.forwarded == "media") {
      EXPECT_EQ(stack.sink.items[0], "media") << one.what << ": a trailer is no part of it";
    }
  }
}

// Cut anywhere, a frame is still one item, a hole in a datagram, or an end in a tunnel: nothing is read behind it.
TEST(NetworkStack, CountsEachFrameOnceWhateverItIs) {
  Stack stack;
  const Bytes deep = ethernet(
      0x8100,
      number(1, 2) + number(0x0800, 2) +
          gre(0x3000, 0x6558,
              zeros(8) + ethernet(0x0800, vxlan(ethernet(0x0800, Ip{.protocol = 6}(tcp(
                                                                     1, text("INVITE sip:a@b SIP/2.0\r\n\r\n"))))))));
  const int linkTypes[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW, DLT_NULL, DLT_LOOP};
  std::uint64_t frames = 0;
  for (std::size_t length = 0; length <= deep.size(); ++length) {
    for (const int linkType : linkTypes) {
      Bytes cut(deep.begin(), deep.begin() + static_cast<long>(length));
      // No slack behind it but what the stack may write to: a reader that goes too far is found by the sanitizer.
      stack.take(cut, static_cast<std::int64_t>(frames++) * 100'000, linkType);
    }
  }
  const Statistics& counts = stack.statistics;
  EXPECT_EQ(stack.sink.items.size() + counts.otherDropped + counts.tcpDropped + counts.segmentsFollowed +
                counts.fragmentsHeld + counts.duplicatesDropped,
            frames + counts.streamMessages);
  EXPECT_EQ(counts.streamMessages, 1U);
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
      {"in order", {piece(0, 32), piece(32, 64), piece(64, 88)}, 1},
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
    Settings settings = Stack::all();
    settings.dropDuplicates = false;
    Stack stack(settings);
    for (const Bytes& fragment : one.fragments) stack.take(fragment);
    EXPECT_EQ(stack.sink.items, Items(one.datagrams, std::string(40, 'a') + std::string(40, 'b'))) << one.what;
    EXPECT_EQ(stack.statistics.datagramsContradictory, one.contradictory) << one.what;
    EXPECT_EQ(stack.statistics.fragmentsMalformed, one.malformed) << one.what;
    EXPECT_EQ(stack.statistics.fragmentsHeld + one.datagrams, one.fragments.size()) << one.what;
  }
  // A tunnel that is fragmented, with a fragmented datagram in it.
  Stack stack;
  for (const auto& [from, to] : {std::pair{0, 32}, std::pair{32, 88}}) {
    const Bytes tunnel = udp(4789, number(8, 1) + zeros(7) + piece(from, to));
    stack.take(ethernet(0x0800, Ip{.id = 20 + from, .fragment = 0x2000}(Bytes(tunnel.begin(), tunnel.begin() + 24))));
    stack.take(ethernet(0x0800, Ip{.id = 20 + from, .fragment = 3}(Bytes(tunnel.begin() + 24, tunnel.end()))));
  }
  EXPECT_EQ(stack.sink.items, Items{std::string(40, 'a') + std::string(40, 'b')});
}

TEST(NetworkStack, BoundsWhatWaitsForFragments) {
  Stack stack;
  std::int64_t time = 0;
  for (int id = 0; id < 5'000; ++id) stack.take(ethernet(0x0800, Ip{.id = id, .fragment = 0x2000}(zeros(8))), time);
  EXPECT_EQ(stack.statistics.datagramsDisplaced, 5'000U - FragmentReassembler::kMaxDatagrams);
  time += FragmentReassembler::kPatience + 1;
  stack.take(ethernet(0x0800, Ip{.id = 6'000, .fragment = 0x2000}(zeros(8))), time);
  EXPECT_EQ(stack.statistics.datagramsTimedOut, FragmentReassembler::kMaxDatagrams);
  const std::uint64_t before = stack.statistics.datagramsDisplaced;
  for (int id = 0; id < 400; ++id) {  // 64 KiB each
    stack.take(ethernet(0x0800, Ip{.id = id, .fragment = 0x3FF0}(zeros(8))), time);
  }
  EXPECT_GT(stack.statistics.datagramsDisplaced, before + 100);
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
    EXPECT_EQ(stack.statistics.duplicatesDropped, one.isDuplicate ? 1U : 0U) << one.what;
  }
}

}  // namespace
