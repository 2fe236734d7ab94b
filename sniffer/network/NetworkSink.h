#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "network/FlowEnds.h"
#include "network/WireHeaders.h"

namespace voip {

/// What the network room counts.
enum class NetworkCount {
  kOtherDropped,  ///< packets in tunnels that are neither UDP nor TCP
  kTcpDropped,    ///< TCP segments of no stream that is followed
  kDuplicatesDropped,
  kDuplicatesForgotten,
  kFragmentsHeld,
  kFragmentsMalformed,
  kDatagramsReassembled,
  kDatagramsTimedOut,
  kDatagramsDisplaced,
  kDatagramsContradictory,
  kSegmentsFollowed,
  kSegmentsRetransmitted,
  kStreamMessages,
  kStreamMessagesTooLong,
  kStreamGaps,
  kStreamsOutOfStep,
  kStreamsDisplaced,
};

class NetworkCounters {
 public:
  virtual void count(NetworkCount what) = 0;

 protected:
  ~NetworkCounters() = default;
};

/// The payload of a UDP datagram. It may be written to, and so may the 42 bytes of headers before it, if these were
/// captured. kFrameSlack readable bytes follow it, zeroed. It includes padding after the packet in a plain frame.
struct Datagram {
  FlowEnds ends;
  std::span<std::uint8_t> payload;
  bool isCaptured;  ///< it stays as long as the captured frame; else it is valid during the call only
};

/// The payload of one TCP segment, otherwise as Datagram.
struct Segment {
  FlowEnds ends;
  std::span<std::uint8_t> payload;
};

/// Takes what the network carried. Spans are valid during the call, unless it says otherwise. The thread that owns the
/// network stack.
class NetworkSink : public NetworkCounters {
 public:
  virtual void takeDatagram(const Datagram& datagram) = 0;
  virtual void takeSegment(const Segment& segment) = 0;

  /// A SIP message of a TCP stream (RFC 3261 18.3), short enough for one frame to the recorder.
  virtual void takeSipMessage(const FlowEnds& ends, std::span<const std::uint8_t> message) = 0;

  /// A TPKT of a TCP stream (RFC 1006), its header included.
  virtual void takeTpkt(const FlowEnds& ends, std::span<const std::uint8_t> tpkt) = 0;

  /// A message of a TCP stream that is too long for one frame to the recorder.
  virtual void refuseMessage(const FlowEnds& ends, std::uint64_t length) = 0;

  // Packets that are not looked into: the IP header is too short, the protocol is neither UDP nor TCP, the TCP header
  // is too short.
  virtual void refuseHeader(const sniff_ip& ip) = 0;
  virtual void refuseProtocol(const sniff_ip& ip) = 0;
  virtual void refuseTcpHeader(int length) = 0;

 protected:
  ~NetworkSink() = default;
};

}  // namespace voip
