#pragma once

#include <cstddef>
#include <cstdint>

#include "network/MessageFraming.h"

namespace voip {

/// Splits a WebSocket stream into SIP messages (RFC 6455, RFC 7118).

/// Whether the octets begin the handshake of either side: its first line, GET or the status 101.
Likeness beginsHandshake(Octets octets);

/// Returns kSkip for a complete handshake that agrees on SIP, kLost for any other handshake. `known` of the octets were
/// checked by an earlier call.
Cut cutHandshake(Octets octets, std::size_t known);

/// The header of a WebSocket frame.
struct WebSocketFrame {
  bool isLast = false;        ///< the last frame of its message
  std::uint8_t opcode = 0;    ///< 0 continues a message, 1 is text, 2 binary, 8 and above control
  std::uint8_t key[4] = {};   ///< all zero when the frame is not masked
  std::size_t payloadAt = 0;  ///< the payload ends with the frame

  std::uint8_t unmask(std::uint8_t octet, std::size_t position) const {
    return static_cast<std::uint8_t>(octet ^ key[position % 4]);
  }
};

Cut cutWebSocket(Octets octets, WebSocketFrame& frame);

/// Whether the octets begin a data frame whose payload begins with a SIP start line. This identifies a SIP stream as
/// reliably as a handshake, even when the start of the stream was not captured or octets were lost.
Likeness beginsSipFrame(Octets octets);

/// Finds a data frame that begins with a SIP start line.
Found findSipFrame(Octets octets);

}  // namespace voip
