#pragma once

#include <pcap/pcap.h>

/// One captured frame as a capture thread hands it over. Everything stays the caller's; the queue takes copies.
struct SniffedPacket {
  /// Zeroed bytes behind a queued frame: more than any walk over Ethernet with two tags (22), IPv4 (60) and TCP (60)
  /// headers and a start-line test (20) can reach from a frame that ends too early.
  static constexpr int kSlack = 192;

  const u_char* args = nullptr;         ///< libpcap's user argument
  const pcap_pkthdr* header = nullptr;  ///< time stamp and lengths, as libpcap gives them
  const u_char* packet = nullptr;       ///< `header->caplen` bytes from the link-layer header on
  int linkType = DLT_EN10MB;            ///< libpcap's DLT_ value
  bool replayed = false;                ///< from a file: the time stamp is not of today
};
