#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "network/FlowEnds.h"
#include "network/Octets.h"
#include "network/WireHeaders.h"

namespace voip {

/// The events that the network stack counts.
enum class NetworkCount {
  kOtherDropped,  ///< packets in tunnels, and IPv6 packets, that are neither UDP nor TCP
  kTcpDropped,    ///< TCP segments of streams that are not followed
  kDuplicatesDropped,
  kDuplicatesForgotten,
  kFragmentsHeld,
  kFragmentsMalformed,
  kDatagramsReassembled,
  kDatagramsTimedOut,
  kDatagramsDisplaced,
  kDatagramsContradictory,
  kDatagramsMixed,  ///< fragments of several datagrams: the checksum was wrong
  kSegmentsFollowed,
  kSegmentsRetransmitted,
  kSegmentsCut,  ///< followed segments that were not captured to their end
  kStreamMessages,
  kStreamMessagesTooLong,
  kStreamGaps,
  kStreamsOutOfStep,
  kStreamsDisplaced,
  kIpv6Malformed,  ///< of kOtherDropped: an invalid IPv6 header or chain of extension headers
  kJumboPayloads,  ///< of kOtherDropped: IPv6 packets over 65,575 bytes
};

class NetworkCounters {
 public:
  virtual void count(NetworkCount what) = 0;

 protected:
  ~NetworkCounters() = default;
};

/// The payload of a UDP datagram. The payload may be written to, and so may the 42 bytes of headers before it, if these
/// were captured. kFrameSlack zeroed, readable bytes follow it. In a plain IPv4 frame it includes the padding after
/// the packet.
struct Datagram {
  FlowEnds ends;
  std::span<std::uint8_t> payload;
  bool isCaptured;  ///< true: valid as long as the captured frame; false: valid during the call only
};

/// The payload of one TCP segment, otherwise as Datagram.
struct Segment {
  FlowEnds ends;
  std::span<std::uint8_t> payload;
};

/// Receives the results of the network stack, on the thread that owns the stack. Spans are valid during the call,
/// unless stated otherwise. `captured` is the capture time in microseconds of the segment that completed a message. It
/// may be earlier than that of the current frame, because a message may have waited for a missing segment.
class NetworkSink : public NetworkCounters {
 public:
  virtual void takeDatagram(const Datagram& datagram) = 0;
  virtual void takeSegment(const Segment& segment) = 0;

  /// Takes a SIP message of a TCP stream (RFC 3261 18.3), short enough for one frame to the recorder.
  virtual void takeSipMessage(const FlowEnds& ends, Octets message, std::int64_t captured) = 0;

  /// Takes a TPKT of a TCP stream (RFC 1006), its header included. Returns what that took, in the units of Work.
  virtual std::size_t takeTpkt(const FlowEnds& ends, Octets tpkt, std::int64_t captured) = 0;

  /// Reports a message of a TCP stream that is too long for one frame to the recorder.
  virtual void refuseMessage(const FlowEnds& ends, std::uint64_t length) = 0;

  /// Reports a TCP segment of a followed stream whose last `missing` octets were not captured: the frame was longer
  /// than the snap length.
  virtual void refuseTail(const FlowEnds& ends, std::size_t missing) = 0;

  // Packets that are not examined: the IPv4 header is too short, the protocol in it is neither UDP nor TCP, the TCP
  // header is too short.
  virtual void refuseHeader(const sniff_ip& ip) = 0;
  virtual void refuseProtocol(const sniff_ip& ip) = 0;
  virtual void refuseTcpHeader(int length) = 0;

 protected:
  ~NetworkSink() = default;
};

}  // namespace voip
