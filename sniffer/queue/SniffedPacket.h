#pragma once

#include <pcap/pcap.h>

/// One captured frame as a capture thread hands it over. Everything stays the caller's; the queue takes copies.
struct SniffedPacket {
  const u_char* args = nullptr;         ///< libpcap's user argument
  const pcap_pkthdr* header = nullptr;  ///< time stamp and lengths, as libpcap gives them
  const u_char* packet = nullptr;       ///< `header->caplen` bytes from the link-layer header on
  int linkType = DLT_EN10MB;            ///< libpcap's DLT_ value
  bool replayed = false;                ///< read from a file: the time stamp is not of today
};
