#pragma once

#include <pcap/dlt.h>

#include <cstdint>
#include <optional>
#include <span>

#include "Decapsulator.h"
#include "DuplicateFilter.h"
#include "FragmentReassembler.h"
#include "NetworkSink.h"
#include "Settings.h"
#include "Statistics.h"
#include "TcpStreams.h"

/// From a captured frame to what a telephone sent: takes off link layers and tunnels, drops what was seen a moment ago,
/// puts fragments and TCP streams together, each as far as the settings ask for it, in this order.
///
/// Every frame that comes in is counted once: by whoever takes what the sink is given, or here, as one that nobody
/// asked for, a duplicate, a fragment that is held (each but the one that makes its datagram whole), or a segment of a
/// stream that is followed. Messages of streams are none of the frames that came in. One thread.
class NetworkStack {
 public:
  /// Both must live as long.
  NetworkStack(const Settings& settings, NetworkSink& takesItems, Statistics& counts);

  /// True when frames of the link type have to come here, and not go the plain way for Ethernet.
  static bool isNeeded(const Settings& settings, int linkType) {
    return linkType != DLT_EN10MB || settings.decapsulate || settings.dropDuplicates || settings.reassembleFragments ||
           settings.reassembleTcp;
  }

  /// `frame` is a captured frame of the link type (a DLT_ value) that may be written to, with 192 zeroed bytes behind
  /// it. `time` is its capture time in microseconds. Calls the sink as often as there is something.
  void takeFrame(std::span<std::uint8_t> frame, int linkType, std::int64_t time);

 private:
  struct Bytes {
    std::span<std::uint8_t> bytes;
    bool areCaptured;  ///< not put together
  };

  void takePacket(const Bytes& from, const InnerPacket& packet, std::int64_t time);
  void takeFragment(const Ipv4Header& header, std::span<const std::uint8_t> bytes, int layers, std::int64_t time);
  bool takeSegment(const Ipv4Header& header, std::span<const std::uint8_t> bytes, std::int64_t time);
  void handOn(const Bytes& from, const InnerPacket& packet);

  NetworkSink& sink;
  Statistics& statistics;
  const bool decapsulate;
  std::optional<DuplicateFilter> duplicates;
  std::optional<FragmentReassembler> fragments;
  std::optional<TcpStreams> streams;
};
