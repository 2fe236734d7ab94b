// Calls as networks carry them, over IPv4 and IPv6. In every variant the network stack must find what it finds in the
// plain capture.

#include <gtest/gtest.h>
#include <pcap/pcap.h>

#include "support/Tunnels.h"

using namespace voip;

namespace {

constexpr int kMedia = 40;  // frames of media of each call

/// Returns the IPv4 packets of a captured call: its signalling and the beginning of its media.
std::vector<Bytes> packetsOf(const std::string& name) {
  char error[PCAP_ERRBUF_SIZE];
  pcap_t* file = pcap_open_offline((TEST_FILES "/../../samples/" + name + ".pcap").c_str(), error);
  std::vector<Bytes> packets;
  if (file == nullptr) return packets;
  pcap_pkthdr* header = nullptr;
  const u_char* frame = nullptr;
  int media = 0;
  while (pcap_next_ex(file, &header, &frame) == 1) {
    const u_char* packet = frame + 14;
    if (frame[12] != 8 || frame[13] != 0) continue;
    const bool isMedia = packet[9] == 17 && packet[28] >> 6 == 2;
    if (isMedia && ++media > kMedia) continue;
    packets.push_back(checked(Bytes(packet, packet + (packet[2] << 8 | packet[3]))));
  }
  pcap_close(file);
  return packets;
}

/// Returns the same datagram or segment over IPv6. The IPv4 addresses are the ends of its addresses.
Bytes twinOf(const Bytes& packet) {
  const auto word = [&](std::size_t at) {
    return static_cast<std::uint32_t>(packet[at] << 24 | packet[at + 1] << 16 | packet[at + 2] << 8 | packet[at + 3]);
  };
  Bytes payload(packet.begin() + 20, packet.end());
  const std::size_t at = packet[9] == 17 ? 6 : 16;
  payload[at] = payload[at + 1] = 0;
  const Bytes addresses = Ip6::address(word(12)) + Ip6::address(word(16));
  const int sum = checksum(addresses + number(payload.size(), 4) + number(packet[9], 4) + payload);
  payload[at] = static_cast<std::uint8_t>(sum >> 8);
  payload[at + 1] = static_cast<std::uint8_t>(sum);
  return Ip6{.next = packet[9], .source = word(12), .destination = word(16)}(payload);
}

/// How the frames of a packet are changed.
enum class Way { kWhole, kFragments, kFragmentedTunnel, kFragmentsInFragments, kTwice };

std::vector<Bytes> framesOf(const Carrier& carrier, int outer, const Bytes& packet, Way way, std::uint32_t id) {
  std::vector<Bytes> frames;
  const bool isCut = way == Way::kFragments || way == Way::kFragmentsInFragments;
  for (const Bytes& piece : isCut ? inFragments(packet, id) : std::vector<Bytes>{packet}) {
    const Bytes inner = versionOf(piece) == 4 ? checked(piece) : piece;
    if (carrier.protocol == 0) {
      const bool isPlain = &carrier == kCarriers && versionOf(inner) == 4;  // its padding is a part of it
      frames.push_back(carrier.wrap(inner) + text(isPlain ? "" : "trailer"));
      continue;
    }
    const Bytes tunnel = carrier.outer(outer, inner);
    const bool isTunnelCut = way == Way::kFragmentedTunnel || way == Way::kFragmentsInFragments;
    for (const Bytes& part : isTunnelCut ? inFragments(tunnel, ++id) : std::vector<Bytes>{tunnel}) {
      frames.push_back(frameOf(part) + text("trailer"));
    }
  }
  if (way == Way::kTwice) frames.push_back(frames.back());
  return frames;
}

/// Returns what the sink got, with the ends of the addresses, so that both families are equal.
std::vector<std::string> itemsOf(const WritingSink& sink) {
  std::vector<std::string> items;
  for (std::size_t i = 0; i < sink.items.size(); ++i) {
    const FlowEnds& ends = sink.ends[i];
    items.push_back(IpAddress(ends.source.ipv4()).textWithPort(ends.sourcePort) + " " +
                    IpAddress(ends.destination.ipv4()).textWithPort(ends.destinationPort) + " " + sink.items[i]);
  }
  return items;
}

TEST(CarriedCalls, AreThoseOfThePlainCapture) {
  std::vector<Bytes> packets;
  for (const char* name : {"sip-g711a-call", "h323-h245-separate"}) {
    for (const Bytes& packet : packetsOf(name)) packets.push_back(packet);
  }
  NetworkOptions options{true, true, true, true, true};
  options.tunnelPorts = TunnelPorts("vxlan:8472,geneve:6082");
  const auto carry = [&](const Carrier& carrier, int inner, int outer, Way way) {
    Stack stack(options);
    std::int64_t time = 0;
    std::uint32_t id = 1;
    for (const Bytes& packet : packets) {
      time += 100'000;  // equal datagrams are no duplicates
      for (const Bytes& frame : framesOf(carrier, outer, inner == 6 ? twinOf(packet) : packet, way, id)) {
        stack.take(frame, time);
      }
      id += 10;
    }
    for (const FlowEnds& ends : stack.sink.ends) EXPECT_EQ(ends.areIpv4(), inner == 4);
    EXPECT_EQ(stack.sink.refused, 0);
    return itemsOf(stack.sink);
  };
  const auto plain = carry(kCarriers[0], 4, 4, Way::kWhole);
  ASSERT_GT(plain.size(), 2U * kMedia + 20);
  for (const Carrier& carrier : kCarriers) {
    for (const Way way :
         {Way::kWhole, Way::kFragments, Way::kFragmentedTunnel, Way::kFragmentsInFragments, Way::kTwice}) {
      for (const int inner : {4, 6}) {
        for (const int outer : {4, 6}) {
          EXPECT_TRUE(carry(carrier, inner, outer, way) == plain)
              << "IPv" << inner << " in " << carrier.name << " over IPv" << outer << ", way " << static_cast<int>(way);
        }
      }
    }
  }
}

/// A call on the port of a tunnel stays a call.
TEST(CarriedCalls, ArePlainOnPortsOfTunnels) {
  NetworkOptions options{.decapsulate = true, .ipv6 = true};
  options.tunnelPorts = TunnelPorts("vxlan:8472,geneve:6082,gtp:2153,l2tp:1702,tzsp:37009");
  std::vector<std::string> payloads = {
      "INVITE sip:alice@example.com SIP/2.0\r\n\r\n",
      "SIP/2.0 200 OK\r\n\r\n",
      "\r\n\r\n",
      std::string("\0\2\0\4\0\1\xFF\3\0\x21\x45", 11) + std::string(40, '\0'),  // T.38 that looks like L2TP
      std::string("\x30\xFF\0\x20", 4) + std::string(36, '\x45'),               // looks like GTP-U
      std::string("\x32\1\0\4\0\0\0\0\0\1\0\0", 12),                            // GTP echo
      std::string("\xC8\2\0\x14\0\0\0\0\0\0\0\0", 12),                          // L2TP control
      std::string("\1\4\0\1", 4),                                               // TZSP keepalive
      std::string("\1\0\0\1\1", 5) + std::string(60, '\x08'),                   // TZSP with neither IP nor its end
      std::string("\0\1\0\0\x21\x12\xA4\x42", 8) + std::string(12, '\x77'),     // STUN
  };
  for (int csrc = 0; csrc < 16; ++csrc) {  // RTP, RTCP
    payloads.push_back(static_cast<char>(0x80 + csrc) + std::string("\0\1\2\3\4\5\6\7\x08\x08\0\x45", 12) +
                       std::string(160, '\xD5'));
  }
  payloads.push_back(std::string("\x80\xC8\0\6", 4) + std::string(24, '\0'));
  for (const int port : {4789, 8472, 6081, 6082, 2152, 2153, 1701, 1702, 37008, 37009}) {
    for (const std::string& payload : payloads) {
      Stack stack(options);
      Bytes datagram = udp(port, text(payload));
      for (int direction = 0; direction < 2; ++direction) {
        stack.take(ethernet(0x0800, Ip{}(datagram)));
        stack.take(ethernet(0x86DD, Ip6{}(datagram)));
        std::swap_ranges(datagram.begin(), datagram.begin() + 2, datagram.begin() + 2);
      }
      EXPECT_EQ(stack.sink.items, std::vector<std::string>(4, payload)) << "port " << port;
    }
  }
}

}  // namespace
