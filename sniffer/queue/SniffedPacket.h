#pragma once

#include <pcap/pcap.h>

#include <cstdint>

/// One captured frame as a capture thread passes it to the queue. The caller owns all memory; the queue copies the
/// frame.
struct SniffedPacket {
  const u_char* args = nullptr;         ///< libpcap's user argument
  const pcap_pkthdr* header = nullptr;  ///< time stamp and lengths in libpcap's form
  const u_char* packet = nullptr;       ///< `header->caplen` bytes, the link-layer header first
  int linkType = DLT_EN10MB;            ///< libpcap's DLT_ value
  bool replayed = false;                ///< true for a frame of a capture file: its time stamp is old
  std::uint16_t zone = 0;               ///< the same for frames of the same device; 0: unknown
};
