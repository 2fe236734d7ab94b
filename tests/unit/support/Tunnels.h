#pragma once

#include "support/Packets.h"

// Tunnels around an IP packet of either family, and packets in fragments.

inline int versionOf(const Bytes& packet) {
  return packet[0] >> 4;
}

inline int etherTypeOf(const Bytes& packet) {
  return versionOf(packet) == 6 ? 0x86DD : 0x0800;
}

inline Bytes frameOf(const Bytes& packet) {
  return ethernet(etherTypeOf(packet), packet);
}

inline Bytes ppp(const Bytes& packet) {
  return number(versionOf(packet) == 6 ? 0x57 : 0x21, 2) + packet;
}

/// PPP with the bytes of address and control, and a protocol of one byte.
inline Bytes compressedPpp(const Bytes& packet) {
  return number(0xFF03, 2) + number(versionOf(packet) == 6 ? 0x57 : 0x21, 1) + packet;
}

inline Bytes gre(int flags, int type, const Bytes& fields, const Bytes& payload) {
  return number(flags, 2) + number(type, 2) + fields + payload;
}

inline Bytes tagged(int etherType, const Bytes& rest) {
  return number(7, 2) + number(etherType, 2) + rest;
}

/// A way to carry a packet. Its outer packet is of either family.
struct Carrier {
  const char* name;
  int protocol;  ///< of the outer packet; 0: none, `wrap` makes the frame
  Bytes (*wrap)(const Bytes& packet);

  Bytes outer(int version, const Bytes& packet) const {
    const int number = protocol == 4 && versionOf(packet) == 6 ? 41 : protocol;
    return version == 6 ? Ip6{.next = number}(wrap(packet)) : Ip{.protocol = number}(wrap(packet));
  }
};

inline const Carrier kCarriers[] = {
    {"Ethernet", 0, frameOf},
    {"802.1Q", 0, [](const Bytes& packet) { return ethernet(0x8100, tagged(etherTypeOf(packet), packet)); }},
    {"802.1ad and 802.1Q", 0,
     [](const Bytes& packet) { return ethernet(0x88A8, tagged(0x8100, tagged(etherTypeOf(packet), packet))); }},
    {"MPLS", 0, [](const Bytes& packet) { return ethernet(0x8847, number(0x140, 4) + packet); }},
    {"MPLS pseudowire", 0, [](const Bytes& packet) { return ethernet(0x8847, number(0x140, 4) + frameOf(packet)); }},
    {"PPPoE", 0,
     [](const Bytes& packet) {
       return ethernet(0x8864, number(0x11000001, 4) + number(packet.size() + 2, 2) + ppp(packet));
     }},
    {"IP in IP", 4, [](const Bytes& packet) { return packet; }},
    {"GRE", 47, [](const Bytes& packet) { return gre(0, etherTypeOf(packet), {}, packet); }},
    {"GRE, all fields", 47, [](const Bytes& packet) { return gre(0xB000, etherTypeOf(packet), zeros(12), packet); }},
    {"GRE with Ethernet", 47, [](const Bytes& packet) { return gre(0x2000, 0x6558, zeros(4), frameOf(packet)); }},
    {"PPP in GRE", 47, [](const Bytes& packet) { return gre(0, 0x880B, {}, ppp(packet)); }},
    {"PPTP", 47,
     [](const Bytes& packet) {
       return gre(0x3001, 0x880B, number(packet.size() + 2, 2) + zeros(6), ppp(packet)) + text("trailer");
     }},
    {"PPTP with acknowledgement, PPP compressed", 47,
     [](const Bytes& packet) {
       return gre(0x3081, 0x880B, number(packet.size() + 3, 2) + zeros(10), compressedPpp(packet));
     }},
    {"ERSPAN type I", 47, [](const Bytes& packet) { return gre(0, 0x88BE, {}, frameOf(packet)); }},
    {"ERSPAN type II", 47,
     [](const Bytes& packet) { return gre(0x1000, 0x88BE, zeros(4) + number(0x10, 1) + zeros(7), frameOf(packet)); }},
    {"ERSPAN type III", 47,
     [](const Bytes& packet) { return gre(0x1000, 0x22EB, zeros(4) + number(0x20, 1) + zeros(11), frameOf(packet)); }},
    {"VXLAN", 17, [](const Bytes& packet) { return udp(4789, number(8, 1) + zeros(7) + frameOf(packet)); }},
    {"VXLAN on a port of the site", 17,
     [](const Bytes& packet) { return udp(8472, number(8, 1) + zeros(7) + frameOf(packet)); }},
    {"GENEVE", 17, [](const Bytes& packet) { return udp(6081, number(0x6558, 4) + zeros(4) + frameOf(packet)); }},
    {"GENEVE with IP on a port of the site", 17,
     [](const Bytes& packet) {
       return udp(6082, number(0x01000000 + static_cast<unsigned>(etherTypeOf(packet)), 4) + zeros(8) + packet);
     }},
    {"GTP-U", 17,
     [](const Bytes& packet) { return udp(2152, number(0x30FF, 2) + number(packet.size(), 2) + zeros(4) + packet); }},
    {"GTP-U with sequence and N-PDU number", 17,
     [](const Bytes& packet) {
       return udp(2152, number(0x33FF, 2) + number(packet.size() + 4, 2) + zeros(4) + number(0x12345678, 4) + packet);
     }},
    {"GTP-U with extension headers, upstream", 17,
     [](const Bytes& packet) {
       const Bytes extensions = number(0x85, 4) + number(0x01090040, 4) + number(0x02000000, 4) + zeros(4);
       const Bytes datagram =
           udp(30'000, number(0x34FF, 2) + number(packet.size() + 16, 2) + zeros(4) + extensions + packet);
       return number(2152, 2) + Bytes(datagram.begin() + 2, datagram.end());
     }},
    {"L2TP", 17, [](const Bytes& packet) { return udp(1701, number(0x0002, 2) + zeros(4) + ppp(packet)); }},
    {"L2TP, all fields", 17,
     [](const Bytes& packet) {
       const Bytes fields = zeros(8) + number(2, 2) + zeros(2);
       return udp(1701, number(0x4B02, 2) + number(packet.size() + 19, 2) + fields + compressedPpp(packet));
     }},
    {"TZSP", 17, [](const Bytes& packet) { return udp(37008, number(0x0100000101, 5) + frameOf(packet)); }},
    {"TZSP with tags", 17,
     [](const Bytes& packet) {
       return udp(37008,
                  number(0x01000001, 4) + number(0x000A01D8, 4) + zeros(1) + number(0x290200FF01, 5) + frameOf(packet));
     }},
};

/// Returns a packet in fragments, cut after 48 and 136 octets of its payload.
inline std::vector<Bytes> inFragments(const Bytes& packet, std::uint32_t id) {
  std::vector<Bytes> fragments;
  const bool isIpv6 = versionOf(packet) == 6;
  const auto payload = packet.begin() + (isIpv6 ? 40 : 20);
  const long size = packet.end() - payload;
  for (long from = 0, to; from < size; from = to) {
    to = from == 0 ? std::min(48L, size) : from == 48 ? std::min(136L, size) : size;
    const Bytes piece(payload + from, payload + to);
    Bytes header(packet.begin(), payload);
    if (isIpv6) {
      Bytes extended = number(packet[6], 1) + zeros(1) + number(static_cast<std::uint64_t>(from + (to < size)), 2) +
                       number(id, 4) + piece;
      const Bytes length = number(extended.size(), 2);
      std::copy(length.begin(), length.end(), header.begin() + 4);
      header[6] = 44;
      fragments.push_back(header + extended);
    } else {
      const Bytes fields = number(20 + piece.size(), 2) + number(id, 2) +
                           number(static_cast<std::uint64_t>(from / 8 + (to < size ? 0x2000 : 0)), 2);
      std::copy(fields.begin(), fields.end(), header.begin() + 2);
      fragments.push_back(header + piece);
    }
  }
  return fragments;
}

/// Returns the checksum (RFC 1071).
inline int checksum(const Bytes& octets) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < octets.size(); ++i) sum += octets[i] << (i % 2 == 0 ? 8 : 0);
  while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<int>(~sum & 0xFFFF);
}

/// Sets the checksum of an IPv4 header.
inline Bytes checked(Bytes packet) {
  packet[10] = packet[11] = 0;
  const Bytes sum = number(static_cast<std::uint64_t>(checksum(Bytes(packet.begin(), packet.begin() + 20))), 2);
  std::copy(sum.begin(), sum.end(), packet.begin() + 10);
  return packet;
}
