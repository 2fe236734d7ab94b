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
  return Ip6{.next = next}(payload);
}

Bytes plain6(const Bytes& packet) {
  return ethernet(0x86DD, packet);
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
    int linkType = DLT_EN10MB;
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
      {"PPP", number(0xFF03, 2) + number(0x21, 1) + kDatagram, "media", DLT_PPP_SERIAL},
      {"PPP with a label", number(0x0281, 2) + number(0x140, 4) + kDatagram, "media", DLT_PPP},
      {"PPPoE", number(0x11000001, 4) + number(kDatagram.size() + 2, 2) + number(0x0021, 2) + kDatagram + trailer,
       "media", DLT_PPP_ETHER},
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

TEST(NetworkStack, WalksThroughIpv6Headers) {
  using enum NetworkCount;
  const Bytes datagram = udp(5000, text("media"));
  const auto chain = [&](int length) {
    Bytes packet = datagram;
    for (int i = 0; i < length; ++i) packet = extension(i == 0 ? 17 : 60, packet);
    return plain6(ipv6(length == 0 ? 17 : 60, packet));
  };
  const Bytes packet = ipv6(17, datagram), frame = plain6(packet);
  Bytes noLength = packet, mapped = packet, jumbo = ipv6(0, extension(17, datagram));
  noLength[4] = noLength[5] = jumbo[4] = jumbo[5] = 0;
  std::fill(mapped.begin() + 8, mapped.begin() + 18, std::uint8_t{0});
  mapped[18] = mapped[19] = 0xFF;
  const Bytes longPayload = ipv6(17, udp(5000, text("media") + zeros(100)));
  const struct {
    const char* what;
    Bytes frame;
    std::string forwarded = "media";
    NetworkCount counted = kOtherDropped;  // unless it is forwarded
    int linkType = DLT_EN10MB;
  } cases[] = {
      {"plain", frame},
      {"padding", frame + text("padding")},
      {"cut off", plain6(Bytes(longPayload.begin(), longPayload.begin() + 53))},
      {"not segmented yet", plain6(noLength)},
      {"16 extension headers", chain(16)},
      {"17 extension headers", chain(17), "", kIpv6Malformed},
      {"hop-by-hop, routing, destination, authentication",
       plain6(ipv6(0, extension(43, extension(60, extension(51, number(0x11040000, 4) + zeros(20) + datagram)))))},
      {"an atomic fragment", plain6(fragment6(1, 0, datagram))},
      {"an atomic fragment before an extension header", plain6(fragment6(1, 0, extension(17, datagram), 60))},
      {"a chain that goes beyond the packet", plain6(ipv6(60, number(0x11FF0000, 4) + zeros(60))), "", kIpv6Malformed},
      {"a header cut short", Bytes(frame.begin(), frame.begin() + 50), "", kIpv6Malformed},
      {"another version", plain6(Ip6{.beginning = 0x10000000}(datagram)), "", kIpv6Malformed},
      {"an address that passes for IPv4", plain6(mapped), "", kIpv6Malformed},
      {"a jumbo payload", plain6(jumbo), "", kJumboPayloads},
      {"a jumbo payload in VXLAN", ethernet(0x0800, vxlan(plain6(jumbo))), "", kJumboPayloads},
      {"encrypted", plain6(ipv6(50, datagram)), "", kOtherDropped},
      {"no next header", plain6(ipv6(59, datagram)), "", kOtherDropped},
      {"neighbour discovery", plain6(ipv6(58, zeros(24))), "", kOtherDropped},
      {"one service tag and one more",
       ethernet(0x88A8, number(1, 2) + number(0x8100, 2) + number(1, 2) + number(0x86DD, 2) + packet)},
      {"raw", packet, "media", kOtherDropped, DLT_RAW},
      {"BSD loopback", number(30, 4) + packet, "media", kOtherDropped, DLT_NULL},
      {"Linux cooked", zeros(14) + number(0x86DD, 2) + packet, "media", kOtherDropped, DLT_LINUX_SLL},
      {"PPP", number(0x0057, 2) + packet, "media", kOtherDropped, DLT_PPP},
      {"PPP with address and control", number(0xFF030057, 4) + packet, "media", kOtherDropped, DLT_PPP_SERIAL},
      {"PPP with a compressed protocol", number(0x57, 1) + packet, "media", kOtherDropped, DLT_PPP},
      {"Cisco HDLC", number(0x0F0086DD, 4) + packet, "media", kOtherDropped, DLT_C_HDLC},
      {"Linux cooked with a tag", zeros(14) + number(0x8100, 2) + number(1, 2) + number(0x86DD, 2) + packet, "media",
       kOtherDropped, DLT_LINUX_SLL},
  };
  for (const auto& one : cases) {
    for (const bool decapsulate : {false, true}) {
      if (!decapsulate && one.frame.size() > 200) continue;
      Stack stack({.decapsulate = decapsulate, .ipv6 = true});
      stack.take(one.frame, 0, one.linkType);
      if (one.counted == kJumboPayloads && !decapsulate && one.frame[12] == 8) continue;
      EXPECT_EQ(stack.sink.items, one.forwarded.empty() ? Items{} : Items{one.forwarded}) << one.what;
      EXPECT_EQ(stack.sink.counts[one.counted], one.forwarded.empty() ? 1U : 0U) << one.what;
      EXPECT_EQ(stack.sink.refused, 0) << one.what;
      // Without the option, the packet is read as IPv4, as ever.
      Stack without({.decapsulate = decapsulate});
      without.take(one.frame, 0, one.linkType);
      EXPECT_EQ(std::count(without.sink.items.begin(), without.sink.items.end(), "media"), 0) << one.what;
      EXPECT_EQ(without.sink.counts[kIpv6Malformed] + without.sink.counts[kJumboPayloads], 0U) << one.what;
    }
  }
}

TEST(NetworkStack, PutsIpv6FragmentsTogether) {
  using enum NetworkCount;
  const std::string content = std::string(40, 'a') + std::string(40, 'b');
  const auto pieceOf = [](const Bytes& whole, std::size_t from, std::size_t to, std::uint32_t id = 7, int next = 17) {
    return plain6(fragment6(id, static_cast<int>(from) + (to < whole.size() ? 1 : 0),
                            Bytes(whole.begin() + static_cast<long>(from), whole.begin() + static_cast<long>(to)),
                            next));
  };
  const Bytes whole = udp(5000, text(content));
  const auto piece = [&](std::size_t from, std::size_t to, std::uint32_t id = 7) {
    return pieceOf(whole, from, to, id);
  };
  Bytes otherContent = piece(24, 48), cut = piece(32, 88);
  otherContent.back() ^= 1;
  cut.resize(cut.size() - 8);
  const Bytes wrong = udp(5000, text(content), 0x1234);
  const Bytes extended = extension(17, whole), nested = extension(44, number(0x1100, 2) + zeros(6) + whole);
  const Bytes endless = number(0x1100, 2) + number(1, 2) + zeros(4) + whole;
  const auto hopByHop = [&](std::size_t from, std::size_t to) {
    const Bytes packet = piece(from, to);
    return plain6(ipv6(0, extension(44, Bytes(packet.begin() + 54, packet.end()))));
  };
  const struct {
    const char* what;
    std::vector<Bytes> fragments;
    std::size_t datagrams;
    NetworkCount counted = kDatagramsReassembled;
    std::uint64_t times = 1;
  } cases[] = {
      {"backwards", {piece(64, 88), piece(32, 64), piece(0, 32)}, 1},
      {"with repetitions", {piece(0, 32), piece(0, 32), piece(32, 64), piece(0, 64), piece(64, 88)}, 1},
      {"with an overlap", {piece(0, 32), piece(24, 64), piece(64, 88), piece(0, 32)}, 0, kDatagramsContradictory},
      {"with an overlap around", {piece(24, 48), piece(0, 64), piece(64, 88)}, 0, kDatagramsContradictory},
      {"contradicting", {piece(24, 48), otherContent, piece(0, 24), piece(48, 88)}, 0, kDatagramsContradictory},
      {"with numbers that differ in the upper half",
       {piece(0, 32, 7), piece(0, 32, 0x10007), piece(32, 88, 0x10007), piece(32, 88, 7)},
       2,
       kDatagramsReassembled,
       2},
      {"an atomic one between the others", {piece(0, 32), piece(0, 88), piece(32, 88)}, 2},
      {"with options before them", {hopByHop(0, 32), hopByHop(32, 88)}, 1},
      {"with options in them", {pieceOf(extended, 0, 40, 7, 60), pieceOf(extended, 40, 96, 7, 60)}, 1},
      {"an atomic one in fragments", {pieceOf(nested, 0, 40, 7, 60), pieceOf(nested, 40, 104, 7, 60)}, 1},
      {"a fragment in fragments",
       {pieceOf(endless, 0, 40, 7, 44), pieceOf(endless, 40, 96, 7, 44)},
       0,
       kFragmentsMalformed},
      {"with a wrong checksum", {pieceOf(wrong, 0, 32), pieceOf(wrong, 32, 88)}, 0, kDatagramsMixed},
      {"malformed", {piece(0, 13), cut, plain6(fragment6(7, 0xFFF9, zeros(16)))}, 0, kFragmentsMalformed, 3},
  };
  for (const auto& one : cases) {
    Stack stack({.decapsulate = true, .reassembleFragments = true, .ipv6 = true});
    for (const Bytes& fragment : one.fragments) stack.take(fragment);
    EXPECT_EQ(stack.sink.items, Items(one.datagrams, content)) << one.what;
    EXPECT_EQ(stack.sink.counts[one.counted], one.times) << one.what;
    EXPECT_EQ(stack.sink.counts[kFragmentsHeld] + one.datagrams, one.fragments.size()) << one.what;
  }
  // The length of an IPv6 packet does not count its header.
  for (const std::size_t size : {65'535, 65'536}) {
    const Bytes longest = udp(5000, zeros(size - 8));
    Stack stack({.reassembleFragments = true, .ipv6 = true});
    for (const Bytes& fragment : {pieceOf(longest, 32'768, size), pieceOf(longest, 0, 32'768)}) stack.take(fragment);
    EXPECT_EQ(stack.sink.items, size == 65'535 ? Items{std::string(size - 8, '\0')} : Items{});
    EXPECT_EQ(stack.sink.counts[kFragmentsMalformed], size - 65'535);
  }
  // Without the option, the first fragment is taken for the whole datagram.
  Stack stack({.ipv6 = true});
  for (const Bytes& fragment : {piece(0, 32), piece(32, 88)}) stack.take(fragment);
  EXPECT_EQ(stack.sink.items, Items{std::string(24, 'a')});
  EXPECT_EQ(stack.sink.counts[kOtherDropped], 1U);
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
      {"IPv6", plain6(Ip6{}(message)), 50'000, true, plain6(Ip6{}(message)) + zeros(4)},
      {"IPv6 after a router", plain6(Ip6{.hopLimit = 63}(message)), 0, true, plain6(Ip6{}(message))},
      {"IPv6 with another class and flow", plain6(Ip6{.beginning = 0xB812345}(message)), 0, true,
       plain6(Ip6{}(message))},
      {"IPv6 in a tunnel", plain(vxlan(plain6(Ip6{}(message)))), 0, true, plain6(Ip6{}(message))},
      {"IPv6, not the same", plain6(Ip6{}(otherEnd)), 0, false, plain6(Ip6{}(message))},
      {"IPv6 from another address", plain6(Ip6{.source = 1}(message)), 0, false, plain6(Ip6{}(message))},
      {"IPv6 later", plain6(Ip6{}(message)), 50'001, false, plain6(Ip6{}(message))},
      {"IPv6 and IPv4", plain6(Ip6{}(message)), 0, false},
  };
  for (const auto& one : cases) {
    Stack stack;
    stack.take(one.before.empty() ? first : one.before, 1'000'000);
    stack.take(one.second, 1'000'000 + one.later);
    EXPECT_EQ(stack.sink.counts[NetworkCount::kDuplicatesDropped], one.isDuplicate ? 1U : 0U) << one.what;
  }
}

TEST(NetworkStack, TellsLinkLocalHostsApartByTheirDevices) {
  const Bytes datagram = udp(5000, text(std::string(40, 'a'))), message = text("BYE sip:a SIP/2.0\r\nl: 0\r\n\r\n");
  const auto half = [](const Bytes& whole, long from, long to) {
    return Bytes(whole.begin() + from, whole.begin() + to);
  };
  const struct {
    const char* what;
    Bytes first, second;
    std::size_t ofOneHost, ofTwoHosts;  ///< items
  } cases[] = {
      {"a duplicate", Ip6{}(datagram), Ip6{}(datagram), 1, 2},
      {"fragments", fragment6(1, 1, half(datagram, 0, 32)), fragment6(1, 32, half(datagram, 32, 48)), 1, 0},
      {"segments", Ip6{.next = 6}(tcp(1, half(message, 0, 20))), Ip6{.next = 6}(tcp(21, half(message, 20, 27))), 1, 0},
  };
  for (const auto& one : cases) {
    for (const std::size_t linkLocal : {0, 8, 24}) {  // the octet in the header at which a link-local address begins
      for (const std::uint16_t zone : {1, 2}) {
        Bytes first = one.first, second = one.second;
        for (Bytes* packet : {&first, &second}) {
          if (linkLocal != 0) std::ranges::copy(number(0xFE800000, 4), packet->begin() + static_cast<long>(linkLocal));
        }
        Stack stack;
        stack.take(plain6(first), 0, {DLT_EN10MB, 1});
        stack.take(plain6(second), 0, {DLT_EN10MB, zone});
        const bool areTwo = linkLocal != 0 && zone == 2;
        EXPECT_EQ(stack.sink.items.size(), areTwo ? one.ofTwoHosts : one.ofOneHost) << one.what << linkLocal << zone;
      }
    }
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
  const NetworkOptions plain, all = {.decapsulate = true}, ipv6 = {.decapsulate = true, .ipv6 = true};
  const NetworkOptions plainIpv6 = {.ipv6 = true};
  const Bytes frame6 = plain6(Ip6{}(udp(5000, text("media"))));
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
      {"IPv6", frame6, plainIpv6, 5},
      {"IPv6 in a tunnel", ethernet(0x0800, vxlan(frame6)), ipv6, 5},
      {"IPv6, without the option", frame6, plain, 0},
      {"IPv6, another fragment", plain6(fragment6(1, 16, zeros(16))), ipv6, 0},
  };
  for (const auto& one : cases)
    EXPECT_EQ(udpPayloadOf(one.frame, DLT_EN10MB, one.options).size(), one.size) << one.what;
}

}  // namespace
