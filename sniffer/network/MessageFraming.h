#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/FrameLimits.h"
#include "signalling/SipStartLine.h"

namespace voip {

/// How the messages of a TCP stream are told from each other: by the TPKT header (RFC 1006), by Content-Length in SIP
/// (RFC 3261 18.3), by WebSocket frames (RFC 6455) that carry SIP (RFC 7118).

using Octets = std::span<const std::uint8_t>;

/// The longest message that fits a frame to the recorder, whose length is a 16-bit field and counts 15 header bytes.
constexpr std::size_t kMaxMessage = kMaxForwardedFrame - kForwardedHeader;

/// What the front of a stream holds.
struct Cut {
  enum Kind {
    kMore,     ///< nothing is to be told before the stream has come to `length` octets; 0: not known how many
    kSkip,     ///< `length` octets that are no message; they need not all have come
    kTooLong,  ///< as kSkip: a message longer than kMaxMessage
    kMessage,  ///< a message of `length` octets
    kLost,     ///< not what begins a message
  };
  Kind kind;
  std::uint64_t length = 0;
};

// ---- TPKT ----

Likeness beginsTpkt(Octets octets);
Cut cutTpkt(Octets octets);

/// Where a TPKT begins that ends with the octets or is followed by another one; their number if there is none.
std::size_t findTpkt(Octets octets);

// ---- SIP ----

/// `known` of the octets were there before, when it was not known how many are needed. CRLFs between messages (RFC
/// 5626 4.4.1) are to be skipped. A message without Content-Length has no body.
Cut cutSip(Octets octets, std::size_t known);

/// Where a line begins that is, or may become, a start line; the number of octets if there is none.
std::size_t findSip(Octets octets);

// ---- WebSocket ----

/// The handshake of either side, as far as its first line: GET, or the status 101.
Likeness beginsWebSocket(Octets octets);

/// kSkip for a whole handshake that agrees on SIP, kLost for another one.
Cut cutHandshake(Octets octets);

/// One frame of a WebSocket.
struct WebSocketFrame {
  bool isLast = false;        ///< of its message
  std::uint8_t opcode = 0;    ///< 0 goes on with a message, 1 text, 2 binary, from 8 on control
  std::uint8_t key[4] = {};   ///< all zero when it is not masked
  std::size_t payloadAt = 0;  ///< the payload goes on to the end of the frame
};

Cut cutWebSocket(Octets octets, WebSocketFrame& frame);

}  // namespace voip
