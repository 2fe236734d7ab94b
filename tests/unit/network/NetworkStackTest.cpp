#include <gtest/gtest.h>
#include <pcap/pcap.h>

#include "network/ForwardClock.h"
#include "network/UdpPayload.h"
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

/// An Ethernet frame in MPLS, after a control word or at once, to a MAC address that begins with this octet.
Bytes pseudowire(int firstOctet, bool hasControlWord, int etherType, const Bytes& packet) {
  Bytes frame = ethernet(etherType, packet);
  frame[0] = static_cast<std::uint8_t>(firstOctet);
  return ethernet(0x8847, number(0x140, 4) + zeros(hasControlWord ? 4 : 0) + frame);
}

Bytes ipv6(int next, const Bytes& payload) {
  return number(0x60, 1) + zeros(3) + number(payload.size(), 2) + number(next, 1) + zeros(33) + payload;
}

// tests/integration/live/test_network.py has the tunnels of real calls. The cases here only look like tunnels, or are
// rare.
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
      {"a pseudowire to a MAC address like IPv4", pseudowire(0x45, false, 0x0800, kDatagram)},
      {"a pseudowire to a MAC address like IPv6", pseudowire(0x60, false, 0x0800, kDatagram)},
      {"a pseudowire to a MAC address like a control word", pseudowire(0, false, 0x0800, kDatagram)},
      {"a pseudowire with a tag", pseudowire(0x4C, false, 0x8100, number(7, 2) + number(0x0800, 2) + kDatagram)},
      {"a pseudowire with a control word", pseudowire(0, true, 0x0800, kDatagram)},
      {"a pseudowire with a control word and a MAC address like IPv4", pseudowire(0x45, true, 0x0800, kDatagram)},
      {"IPv4 in MPLS, checksum not computed", ethernet(0x8847, number(0x140, 4) + kDatagram)},
      {"IPv6 in MPLS", ethernet(0x8847, number(0x140, 4) + ipv6(4, kDatagram))},
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
  const Bytes unchecked = udp(5000, text(std::string(40, 'a') + std::string(40, 'b')));
  const Bytes checked = udp(5000, text(std::string(40, 'a') + std::string(40, 'b')), 0x7CC8);
  const Bytes leftToCard = udp(5000, text(std::string(40, 'a') + std::string(40, 'b')), 0x146C);
  const Bytes other = udp(5000, text(std::string(40, 'c') + std::string(40, 'd')), 0x2C78);
  const auto pieceOf = [](const Bytes& whole, std::size_t from, std::size_t to, int id = 7) {
    const int more = to < whole.size() ? 0x2000 : 0;
    return ethernet(0x0800, Ip{.id = id, .fragment = more + static_cast<int>(from / 8)}(
                                Bytes(whole.begin() + static_cast<long>(from), whole.begin() + static_cast<long>(to))));
  };
  const auto piece = [&](std::size_t from, std::size_t to, int id = 7) { return pieceOf(unchecked, from, to, id); };
  Bytes contradicting = piece(24, 48);
  contradicting.back() ^= 1;
  const Bytes oddLength = piece(0, 13), beyond = ethernet(0x0800, Ip{.id = 7, .fragment = 0x1FFF}(zeros(24)));
  const struct {
    const char* what;
    std::vector<Bytes> fragments;
    std::size_t datagrams;
    std::uint64_t contradictory = 0, malformed = 0, mixed = 0;
  } cases[] = {
      {"backwards", {piece(64, 88), piece(32, 64), piece(0, 32)}, 1},
      {"with duplicates and overlaps", {piece(0, 32), piece(0, 32), piece(24, 64), piece(48, 88)}, 1},
      {"with a hole", {piece(0, 32), piece(64, 88)}, 0},
      {"contradicting", {piece(0, 32), contradicting, piece(32, 88), piece(0, 32)}, 0, 1},
      {"beyond the end",
       {piece(0, 88, 8), piece(64, 88), ethernet(0x0800, Ip{.id = 7, .fragment = 0x200B}(zeros(8)))},
       1,
       1},
      {"of two datagrams", {piece(0, 32), piece(0, 32, 9), piece(32, 88, 9), piece(32, 88)}, 2},
      {"malformed", {oddLength, beyond}, 0, 0, 2},
      {"with a checksum", {pieceOf(checked, 32, 88), pieceOf(checked, 0, 32)}, 1},
      {"with a checksum that was left to the card", {pieceOf(leftToCard, 32, 88), pieceOf(leftToCard, 0, 32)}, 1},
      {"of two datagrams with one number", {pieceOf(checked, 0, 48), pieceOf(other, 48, 88)}, 0, 0, 0, 1},
  };
  for (const auto& one : cases) {
    Stack stack({.decapsulate = true, .reassembleFragments = true});
    for (const Bytes& fragment : one.fragments) stack.take(fragment);
    EXPECT_EQ(stack.sink.items, Items(one.datagrams, std::string(40, 'a') + std::string(40, 'b'))) << one.what;
    EXPECT_EQ(stack.sink.counts[NetworkCount::kDatagramsContradictory], one.contradictory) << one.what;
    EXPECT_EQ(stack.sink.counts[NetworkCount::kFragmentsMalformed], one.malformed) << one.what;
    EXPECT_EQ(stack.sink.counts[NetworkCount::kDatagramsMixed], one.mixed) << one.what;
    EXPECT_EQ(stack.sink.counts[NetworkCount::kFragmentsHeld] + one.datagrams, one.fragments.size()) << one.what;
  }
}

TEST(NetworkStack, BoundsWhatWaitsForFragments) {
  Stack stack;
  std::int64_t time = 0;
  const NetworkLimits limits;
  const auto& timedOut = stack.sink.counts[NetworkCount::kDatagramsTimedOut];
  for (int id = 0; id < 5'000; ++id) stack.take(ethernet(0x0800, Ip{.id = id, .fragment = 0x2000}(zeros(8))), time);
  EXPECT_EQ(stack.sink.counts[NetworkCount::kDatagramsDisplaced], 5'000U - limits.datagrams);
  time += limits.datagramPatience + 1;
  stack.take(ethernet(0x0800, Ip{.id = 6'000, .fragment = 0x2000}(zeros(8))), time);
  EXPECT_GT(timedOut, 0U);
  EXPECT_LT(timedOut, 100U) << "one frame pays for what came before";
  for (int i = 0; i < 200; ++i) stack.stack.expire(time);
  EXPECT_EQ(timedOut, limits.datagrams);
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
  const auto fragment = [&](const Bytes& packet) { return plain(Ip{.id = 5, .fragment = 0x2001}(packet)); };
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
      {"after a router", plain(Ip{.id = 5, .ttl = 63}(message)), 50'000, true},
      {"marked by a router", plain(Ip{.id = 5, .typeOfService = 0xB8}(message)), 0, true},
      {"with a tag", ethernet(0x8100, number(7, 2) + number(0x0800, 2) + Ip{.id = 5}(message)), 0, true},
      {"in a tunnel", plain(vxlan(first)), 0, true},
      {"cut off", Bytes(first.begin(), first.begin() + 120), 0, true},
      {"after one that was cut off", first, 0, false, Bytes(first.begin(), first.begin() + 120)},
      {"retransmitted", plain(Ip{.id = 6}(message)), 0, false},
      {"later", first, 50'001, false},
      {"another fragment", plain(Ip{.id = 5, .fragment = 0x2001}(message)), 0, false},
      {"forged with the same beginning", plain(Ip{.id = 5}(otherEnd)), 0, false},
      {"forged with the same beginning, a fragment", fragment(otherEnd), 0, false, fragment(message)},
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

// Time limits hold when the clock is set and when files have different dates.
TEST(NetworkStack, KeepsItsTimeWhenClocksAreSet) {
  Stack stack({.dropDuplicates = true}, {.duplicateBuckets = 1});
  const std::int64_t hour = 3'600'000'000;
  for (const std::int64_t captured : {2 * hour, hour}) {
    stack.now += 1'000'000;
    for (int round = 0; round < 2; ++round) {
      for (int id = 1; id <= 4; ++id) {
        Bytes frame = ethernet(0x0800, Ip{.id = id}(udp(5060, zeros(30)))) + zeros(kFrameSlack);
        stack.stack.takeFrame(std::span(frame).first(frame.size() - kFrameSlack), DLT_EN10MB, captured, stack.now);
      }
    }
  }
  EXPECT_EQ(stack.sink.counts[NetworkCount::kDuplicatesDropped], 8U);
  EXPECT_EQ(stack.sink.counts[NetworkCount::kDuplicatesForgotten], 0U);

  const std::int64_t minute = 60'000'000;
  ForwardClock clock;
  std::int64_t last = clock.at(100 * hour, 5 * hour);
  const struct {
    const char* what;
    std::int64_t captured, monotonic, step;  // captured 0: no frame
  } cases[] = {
      {"a replay that is faster than the clock", 100 * hour + minute, 5 * hour, minute},
      {"a frame of another device, a little earlier", 100 * hour, 5 * hour, 0},
      {"a pause", 0, 5 * hour + 7, 7},
      {"a live frame after it", 100 * hour + minute + 7, 5 * hour + 7, 0},
      {"set back", 99 * hour, 5 * hour + 17, 10},
      {"a file of another date", 900 * hour, 5 * hour + 17, 0},
      {"and this one again", 100 * hour + 2 * minute, 5 * hour + 17, 0},
      {"a frame on", 900 * hour + 3, 5 * hour + 17, 3},
  };
  for (const auto& one : cases) {
    const std::int64_t now = one.captured == 0 ? clock.advance(one.monotonic) : clock.at(one.captured, one.monotonic);
    EXPECT_EQ(now - last, one.step) << one.what;
    last = now;
  }
}

TEST(NetworkStack, CountsOtherProtocolsInTunnels) {
  const auto icmp = [](int fragment) { return ethernet(0x0800, Ip{.protocol = 1, .fragment = fragment}(zeros(16))); };
  Stack stack;
  for (const Bytes& frame : {icmp(0), icmp(0x2000), icmp(2)}) stack.take(ethernet(0x0800, vxlan(frame)));
  EXPECT_EQ(stack.sink.counts[NetworkCount::kOtherDropped], 2U);
  EXPECT_EQ(stack.sink.refused, 0);
  for (const Bytes& frame : {icmp(0), icmp(0x2000), icmp(2)}) stack.take(frame, 1'000'000);
  EXPECT_EQ(stack.sink.refused, 2) << "a filter could exclude these";
}

TEST(NetworkStack, SkipsWhatWasNotCaptured) {
  const std::string message = "INFO sip:a@b SIP/2.0\r\nContent-Length: 400\r\n\r\n" + std::string(400, 'x');
  const std::string next = "INFO sip:a@b SIP/2.0\r\nl: 0\r\n\r\n";
  Stack stack;
  Bytes cut = ethernet(0x0800, Ip{.protocol = 6}(tcp(100, text(next + message))));
  cut.resize(300);
  stack.take(cut);
  stack.take(ethernet(
      0x0800, Ip{.protocol = 6, .id = 2}(tcp(static_cast<std::uint32_t>(100 + (next + message).size()), text(next)))));
  EXPECT_EQ(stack.sink.items, (Items{next, next}));
  EXPECT_EQ(stack.sink.tails.size(), 1U);
  EXPECT_EQ(stack.sink.counts[NetworkCount::kSegmentsCut], 1U);
  EXPECT_EQ(stack.sink.counts[NetworkCount::kSegmentsFollowed], 2U);
}

TEST(UdpPayload, IsTheInnermostOne) {
  const NetworkOptions plain, all = {.decapsulate = true};
  const Bytes frame = ethernet(0x0800, kDatagram), tunnel = ethernet(0x0800, vxlan(frame));
  const struct {
    const char* what;
    Bytes frame;
    const NetworkOptions& options;
    std::size_t size;
  } cases[] = {
      {"plain", frame, plain, 5},
      {"plain, with the option", frame, all, 5},
      {"with a tag", ethernet(0x8100, number(7, 2) + number(0x0800, 2) + kDatagram), plain, 5},
      {"a tunnel", tunnel, all, 5},
      {"a tunnel, without the option", tunnel, plain, 8 + frame.size()},
      {"TCP", ethernet(0x0800, Ip{.protocol = 6}(zeros(40))), all, 0},
      {"the first fragment", ethernet(0x0800, Ip{.fragment = 0x2000}(udp(5000, zeros(16)))), all, 16},
      {"another fragment", ethernet(0x0800, Ip{.fragment = 2}(zeros(16))), all, 0},
      {"too short", Bytes(frame.begin(), frame.begin() + 36), all, 0},
      {"nothing", {}, all, 0},
  };
  for (const auto& one : cases)
    EXPECT_EQ(udpPayloadOf(one.frame, DLT_EN10MB, one.options).size(), one.size) << one.what;
}

}  // namespace
