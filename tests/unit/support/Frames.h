#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "base/FrameLimits.h"
#include "dissection/SngDissector.h"
#include "support/Bytes.h"

// Captured frames for tests, fuzzers and benchmarks, and a recorder that keeps the frames it receives.

/// An Ethernet frame, described by its fields. The fields may contradict each other.
struct Frame {
  std::uint32_t srcIp = 0x0A000001;
  std::uint16_t srcPort = 4000;
  std::uint32_t dstIp = 0x0A000002;
  std::uint16_t dstPort = 5000;
  Bytes payload = Bytes(160, 0x55);
  Bytes link = {0x08, 0x00};  ///< the link-layer header from the EtherType on, VLAN tags included
  std::uint8_t ipVhl = 0x45;
  std::uint8_t protocol = 17;
  std::uint8_t tcpOffset = 0x50;
  Bytes ipOptions = {};
  Bytes tcpOptions = {};
  std::size_t minimum = 0;  ///< length up to which zeros pad the frame
  bool ipv6 = false;        ///< the addresses are then the end of 2001:db8::

  /// Returns the octets of an address in the family of the frame.
  Bytes address(std::uint32_t ip) const {
    Bytes octets;
    if (ipv6) append(octets, 0x20010DB8, 4), append(octets, 0, 8);
    append(octets, ip, 4);
    return octets;
  }

  /// Returns the bytes of the frame.
  Bytes build() const {
    Bytes frame(12, 0xEE);  // MAC addresses
    append(frame, ipv6 ? Bytes{0x86, 0xDD} : link);
    if (ipv6) {
      append(frame, 0x60000000, 4);
      append(frame, payload.size() + (protocol == 6 ? 20 + tcpOptions.size() : 8), 2);
      frame.insert(frame.end(), {protocol, 0x40});
    } else {
      append(frame, ipVhl, 1);
      append(frame, 0x00003C1C004000, 7);  // service 0, length 0x003c, identification 0x1c00, fragment field 0x4000
      frame.insert(frame.end(), {0x40, protocol, 0xAB, 0xCD});
    }
    append(frame, address(srcIp));
    append(frame, address(dstIp));
    append(frame, ipOptions);
    append(frame, srcPort, 2);
    append(frame, dstPort, 2);
    if (protocol == 6) {
      append(frame, 0, 8);
      append(frame, tcpOffset, 1);
      append(frame, 0, 7);
      append(frame, tcpOptions);
    } else {
      append(frame, 0, 4);
    }
    append(frame, payload);
    if (frame.size() < minimum) frame.resize(minimum);
    return frame;
  }
};

/// Returns the frame that the recorder has to receive for a captured frame.
inline Bytes forwarded(std::uint8_t protocol, const Frame& frame, const Bytes& payload) {
  Bytes expected;
  append(expected, payload.size() + (frame.ipv6 ? 39 : 15), 2);
  append(expected, protocol + (frame.ipv6 ? 0x40 : 0), 1);
  append(expected, frame.address(frame.dstIp));
  append(expected, frame.dstPort, 2);
  append(expected, frame.address(frame.srcIp));
  append(expected, frame.srcPort, 2);
  append(expected, payload);
  return expected;
}

/// Returns libpcap's header for a frame captured whole, at time 0.
inline pcap_pkthdr captureHeader(const Bytes& frame) {
  const auto length = static_cast<bpf_u_int32>(frame.size());
  return {{0, 0}, length, length};
}

/// Queues one frame, as a capture thread does.
inline void produce(SngDissector& dissector, const Bytes& frame) {
  const pcap_pkthdr header = captureHeader(frame);
  SniffedPacket packet{nullptr, &header, frame.data()};
  dissector.producePacket(packet);
}

/// Returns a copy with kFrameSlack zeroed bytes after it, as in the queue.
inline Bytes withSlack(const Bytes& frame) {
  Bytes copy = frame;
  copy.resize(frame.size() + voip::kFrameSlack);
  return copy;
}

/// Classifies a copy of one frame on the calling thread.
inline void process(SngDissector& dissector, const Bytes& frame) {
  const pcap_pkthdr header = captureHeader(frame);
  Bytes copy = withSlack(frame);
  u_char* start = copy.data();
  dissector.processPacket(nullptr, &header, &start);
}

/// A recorder in the test: keeps the frames it receives in a record, and sends the commands in it. The record outlives
/// the connection.
struct RecordingConnection : BaseConnection {
  struct Record {
    std::vector<Bytes> frames;
    std::vector<SnifferRequest> commands;
    int closed = 0;
    int destroyed = 0;
  };

  explicit RecordingConnection(Record& kept) : record(kept) {}
  ~RecordingConnection() override { ++record.destroyed; }

  bool receiveRequest(SnifferRequest& request) override {
    if (record.commands.empty()) return false;
    request = record.commands.front();
    record.commands.erase(record.commands.begin());
    return true;
  }
  int sendPacket(u_char* buffer, int length) override {
    record.frames.emplace_back(buffer, buffer + length);
    return length;
  }
  void closeConnection() override { ++record.closed; }

  Record& record;
};
