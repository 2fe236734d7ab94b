#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace voip {

/// Whether octets begin something, as far as they go.
enum class Likeness { kNo, kPerhaps, kYes };

// The start line of SIP (RFC 3261 25.1): the version, a blank and more in a response; in a request a method token, a
// blank, a URI of any scheme, a blank, the version and the end of the line. The version is SIP/2.0 in any case. A bare
// line feed ends a line as well as CRLF does. Both functions read nothing but the octets. Any thread.

/// Whether the first octets of a stream begin a start line.
Likeness beginsSip(std::span<const std::uint8_t> octets);

/// True when a datagram begins with a request line. Line ends before it (RFC 3261 7.5) are skipped; the end of the
/// datagram ends the line, too.
///
/// It stands beside SipHelper::isRequest(), which looks at less and so accepts what this does not.
bool isSipRequestWithAnyUri(std::span<const std::uint8_t> datagram);

}  // namespace voip
