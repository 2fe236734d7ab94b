#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace voip {

/// Whether octets are the beginning of something. kPerhaps: yes so far, but more octets are needed to decide.
enum class Likeness { kNo, kPerhaps, kYes };

// The start line of SIP (RFC 3261, 25.1) is here:
// - in a response: the version, a blank, anything
// - in a request: a method token, a blank, a URI of any scheme, a blank, the version, the end of the line
// The version is SIP/2.0 in any case. CRLF or a line feed alone ends a line. Any thread may call these functions.

/// Whether a token of SIP may contain the character.
bool isSipTokenCharacter(char c);

/// Whether the first octets of a stream are the beginning of a start line.
Likeness beginsSip(std::span<const std::uint8_t> octets);

/// True when a datagram begins with a request line. Line ends before it (RFC 3261, 7.5) are skipped. The end of the
/// datagram also ends the line.
///
/// SipHelper::isRequest() checks less and accepts lines that this function does not.
bool isSipRequestWithAnyUri(std::span<const std::uint8_t> datagram);

}  // namespace voip
