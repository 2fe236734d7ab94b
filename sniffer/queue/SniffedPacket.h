#pragma once

#include <pcap/pcap.h>

#include <cstdint>
#include <optional>

/// One captured frame as a capture thread passes it to the queue. The caller owns all memory; the queue copies the
/// frame.
struct SniffedPacket {
  const u_char* args = nullptr;         ///< libpcap's user argument
  const pcap_pkthdr* header = nullptr;  ///< time stamp and lengths in libpcap's form
  const u_char* packet = nullptr;       ///< `header->caplen` bytes, the link-layer header first
  int linkType = DLT_EN10MB;            ///< libpcap's DLT_ value
  /// For a frame of a capture file: the microseconds from its time stamp to the time at which the replay shows it.
  std::optional<std::int64_t> replayShift = {};
  std::uint16_t zone = 0;  ///< the same for frames of the same device; 0: unknown
};
