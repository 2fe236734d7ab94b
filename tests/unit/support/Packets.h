#pragma once

#include <pcap/dlt.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "base/FrameLimits.h"
#include "network/NetworkStack.h"
#include "network/Work.h"

// Packets, from the innermost layer to the outermost one, and a sink that records its input.

using Bytes = std::vector<std::uint8_t>;

inline Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline Bytes text(const std::string& characters) {
  return {characters.begin(), characters.end()};
}

/// `value` in `size` octets.
inline Bytes number(std::uint64_t value, int size) {
  Bytes octets;
  while (size-- > 0) octets.push_back(static_cast<std::uint8_t>(value >> 8 * size));
  return octets;
}

inline Bytes zeros(std::size_t size) {
  return Bytes(size);
}

struct Ip {
  int protocol = 17;
  int id = 1;
  int fragment = 0;  ///< flags and offset, as they are in the header
  int ttl = 64;
  int typeOfService = 0;
  std::uint32_t source = 0x0A000001;

  Bytes operator()(const Bytes& payload) const {
    return number(0x45, 1) + number(typeOfService, 1) + number(20 + payload.size(), 2) + number(id, 2) +
           number(fragment, 2) + number(ttl, 1) + number(protocol, 1) + zeros(2) + number(source, 4) +
           number(0x0A000002, 4) + payload;
  }
};

/// Extension headers are a part of the payload.
struct Ip6 {
  int next = 17;
  std::uint32_t beginning = 0;  ///< traffic class and flow label
  int hopLimit = 64;
  std::uint32_t source = 0x0A000001, destination = 0x0A000002;  ///< the end of 2001:db8::

  Bytes operator()(const Bytes& payload) const {
    return number(0x60000000 + beginning, 4) + number(payload.size(), 2) + number(next, 1) + number(hopLimit, 1) +
           address(source) + address(destination) + payload;
  }

  static Bytes address(std::uint32_t end) { return number(0x20010DB8, 4) + zeros(8) + number(end, 4); }
};

/// An extension header of 8 octets before what `next` names.
inline Bytes extension(int next, const Bytes& rest = {}) {
  return number(next, 1) + zeros(7) + rest;
}

/// A piece of an IPv6 packet. `field`: offset and flag, as they are in the header.
inline Bytes fragment6(std::uint32_t id, int field, const Bytes& payload, int next = 17) {
  return Ip6{.next = 44}(number(next, 1) + zeros(1) + number(field, 2) + number(id, 4) + payload);
}

inline Bytes udp(int port, const Bytes& payload, int checksum = 0) {
  return number(4000, 2) + number(port, 2) + number(8 + payload.size(), 2) + number(checksum, 2) + payload;
}

inline Bytes tcp(std::uint32_t sequence, const Bytes& payload, int flags = 0x10) {
  return number(4000, 2) + number(5060, 2) + number(sequence, 4) + zeros(4) + number(0x5000 + flags, 2) + zeros(6) +
         payload;
}

inline Bytes ethernet(int etherType, const Bytes& payload) {
  return zeros(12) + number(etherType, 2) + payload;
}

/// Records its input.
struct WritingSink final : voip::NetworkSink {
  std::vector<std::string> items;
  std::map<voip::NetworkCount, std::uint64_t> counts;

  void takeDatagram(const voip::Datagram& datagram) override { take(datagram.ends, datagram.payload); }
  void takeSegment(const voip::Segment& segment) override { take(segment.ends, segment.payload); }
  void takeSipMessage(const voip::FlowEnds& from, voip::Octets message, std::int64_t captured) override {
    items.emplace_back(message.begin(), message.end());
    ends.push_back(from);
    times.push_back(captured);
  }
  std::size_t takeTpkt(const voip::FlowEnds& from, voip::Octets tpkt, std::int64_t captured) override {
    takeSipMessage(from, tpkt, captured);
    return voip::Work::kSent;
  }
  void refuseMessage(const voip::FlowEnds&, std::uint64_t length) override { tooLong.push_back(length); }
  void refuseTail(const voip::FlowEnds&, std::size_t missing) override { tails.push_back(missing); }
  void refuseHeader(const voip::sniff_ip&) override { ++refused; }
  void refuseProtocol(const voip::sniff_ip&) override { ++refused; }
  void refuseTcpHeader(int) override { ++refused; }
  void count(voip::NetworkCount what) override { ++counts[what]; }

  std::vector<voip::FlowEnds> ends;  ///< of the items
  std::vector<std::int64_t> times;   ///< capture times of the messages
  std::vector<std::uint64_t> tooLong, tails;
  int refused = 0;

 private:
  void take(const voip::FlowEnds& from, std::span<std::uint8_t> payload) {
    ends.push_back(from);
    for (std::size_t i = 0; i < voip::kFrameSlack - 100; ++i) {
      if (payload.data()[payload.size() + i] != 0) items.emplace_back("slack is not zero");
    }
    items.emplace_back(payload.begin(), payload.end());
  }
};

/// A network stack with all options on.
struct Stack {
  WritingSink sink;
  voip::NetworkStack stack;

  explicit Stack(const voip::NetworkOptions& options = {true, true, true, true, true},
                 const voip::NetworkLimits& limits = {})
      : stack(options, sink, limits) {}

  /// Takes a frame at its capture time, but never earlier than the frame before it.
  void take(const Bytes& frame, std::int64_t captured = 0, voip::FrameSource source = DLT_EN10MB) {
    now = std::max(now, captured);
    Bytes copy = frame + zeros(voip::kFrameSlack);
    stack.takeFrame(std::span(copy).first(frame.size()), source, captured, now);
  }

  std::int64_t now = 0;
};
