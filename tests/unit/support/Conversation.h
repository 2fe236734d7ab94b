#pragma once

#include <string>

#include "support/Packets.h"

/// A TCP connection with numbered messages in both directions, into which a stranger forges segments. The messages are
/// SIP or TPKTs, in one segment or two.
class Conversation {
 public:
  struct Nature {
    bool isTpkt = false;
    bool isAcknowledged = true;  ///< false: the frames with acknowledgements were not captured
    bool isIpv6 = false;
  };

  enum Flag { kFin = 1, kSyn = 2, kReset = 4 };

  explicit Conversation(const Nature& nature, const voip::NetworkLimits& limits = {})
      : nature_(nature), streams_(sink, limits) {
    take(0, next_[0] - 1, {}, kSyn);
    take(1, next_[1] - 1, {}, kSyn);
  }

  /// Sends the next message of a side, and the acknowledgement of the other one.
  void say(int side) {
    const std::string message = messageOf(side, said_[side]);
    const std::size_t cut = said_[side]++ % 3 == 2 ? message.size() / 2 : message.size();
    send(side, message.substr(0, cut));
    if (cut < message.size()) send(side, message.substr(cut));
  }

  void talk(int rounds) {
    while (rounds-- > 0) {
      say(0);
      say(1);
    }
  }

  void pause(std::int64_t time) { streams_.expire(now_ += time); }

  /// Forges a segment of a side. `missing` octets at its end are not captured.
  void forge(int side, std::uint32_t sequence, const std::string& payload, int flags = 0, std::size_t missing = 0) {
    take(side, sequence, payload, flags, missing);
  }

  /// Forges an acknowledgement of octets of a side. Without `sequence` the stranger knows the numbers of the other
  /// side.
  void forgeAcknowledgement(int side, std::uint32_t acknowledged) { acknowledge(side, acknowledged, next_[1 - side]); }
  void acknowledge(int side, std::uint32_t acknowledged, std::uint32_t sequence) {
    voip::TcpSegment segment;
    segment.sequence = sequence;
    segment.hasAcknowledged = true;
    segment.acknowledged = acknowledged;
    streams_.follow(ends(1 - side), segment, now_, now_);
  }

  std::uint32_t next(int side) const { return next_[side]; }
  int said(int side) const { return said_[side]; }

  /// Returns how often the message was found.
  std::ptrdiff_t found(int side, int number) const {
    return std::count(sink.items.begin(), sink.items.end(), messageOf(side, number));
  }

  int countLost() const {
    int lost = 0;
    for (int side = 0; side < 2; ++side) {
      for (int number = 0; number < said_[side]; ++number) lost += found(side, number) == 0;
    }
    return lost;
  }

  WritingSink sink;

 private:
  voip::FlowEnds ends(int side) const {
    voip::FlowEnds ends{1, 2, 3, 4};
    if (nature_.isIpv6) {
      ends.source = voip::IpAddress::read(Ip6::address(1).data());
      ends.destination = voip::IpAddress::read(Ip6::address(2).data());
    }
    return side == 0 ? ends : ends.reversed();
  }

  std::string messageOf(int side, int number) const {
    const std::string name = std::to_string(side) + "-" + std::to_string(number);
    std::string filling;  // unlike what a stranger guesses
    for (int i = 0; i < 100 + number * 37 % 500; ++i) filling += static_cast<char>('a' + (i * i + number) % 23);
    if (!nature_.isTpkt) {
      return "INFO sip:" + name + "@b SIP/2.0\r\nl: " + std::to_string(filling.size()) + "\r\n\r\n" + filling;
    }
    const std::string body = name + filling;
    const Bytes header = number_(body.size() + 4);
    return std::string(header.begin(), header.end()) + body;
  }

  static Bytes number_(std::size_t length) { return number(0x0300, 2) + number(length, 2); }

  void send(int side, const std::string& octets) {
    take(side, next_[side], octets, 0);
    next_[side] += static_cast<std::uint32_t>(octets.size());
    if (nature_.isAcknowledged) acknowledge(side, next_[side], next_[1 - side]);
  }

  void take(int side, std::uint32_t sequence, const std::string& payload, int flags, std::size_t missing = 0) {
    const Bytes octets = text(payload);
    voip::TcpSegment segment;
    segment.sequence = sequence;
    segment.payload = octets;
    segment.isFin = (flags & kFin) != 0;
    segment.isSyn = (flags & kSyn) != 0;
    segment.isReset = (flags & kReset) != 0;
    segment.missing = missing;
    now_ += 1'000;
    streams_.follow(ends(side), segment, now_, now_);
  }

  Nature nature_;
  voip::TcpStreams streams_;
  std::uint32_t next_[2] = {1'000'000, 3'000'000'000};
  int said_[2] = {};
  std::int64_t now_ = 1;
};
