#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/FrameLimits.h"
#include "network/Octets.h"
#include "signalling/SipStartLine.h"

namespace voip {

/// Splits a TCP stream into messages: by the TPKT header (RFC 1006), and in SIP by Content-Length (RFC 3261 18.3).
/// WebSocketFraming.h does the same for WebSockets.

/// The longest message that fits a frame to the recorder, whose length is a 16-bit field and counts the header.
constexpr std::size_t kMaxMessage = kMaxForwardedFrame - kForwardedHeader;

/// The same between IPv6 addresses: the header is longer.
constexpr std::size_t kMaxIpv6Message = kMaxForwardedFrame - kForwardedIpv6Header;

/// The greatest length field that is believed, so that a wrong one skips a limited part of the stream.
constexpr std::uint64_t kLongestBelieved = 16 << 20;

/// The octets in which a search looks for a beginning, so that a long segment takes several searches.
constexpr std::size_t kSearchedAtOnce = 8'192;

/// What a stream begins with.
struct Cut {
  enum Kind {
    kMore,     ///< undecided until the stream has `length` octets; 0: the number is unknown
    kSkip,     ///< `length` octets that are no message; some of them may not have arrived yet
    kTooLong,  ///< as kSkip: a message longer than kMaxMessage
    kMessage,  ///< a message of `length` octets
    kLost,     ///< no message begins here
  };
  Kind kind;
  std::uint64_t length = 0;
};

/// The position at which a message begins, or may begin when more octets arrive. `at` is the number of octets when
/// there is none, or smaller when kSearchedAtOnce octets were searched.
struct Found {
  std::size_t at;
  Likeness likeness = Likeness::kNo;
};

// ---- TPKT ----

Likeness beginsTpkt(Octets octets);

/// kSkip for a TPKT without content: a keep-alive of firewall traversal.
Cut cutTpkt(Octets octets);

/// Finds a TPKT that ends with the octets or is followed by another one.
Found findTpkt(Octets octets);

// ---- SIP ----

/// Whether the octets begin with a start line and a header field after it. A start line alone may be a line of a body.
/// A request whose CSeq field names another method does not count: its start line is only the end of one.
Likeness beginsSipMessage(Octets octets);

/// `known` of the octets were checked by an earlier call, which did not find the end of the header. CRLFs between
/// messages (RFC 5626 4.4.1) are skipped. A message without Content-Length has no body. A bare line feed ends a line as
/// well as CRLF does.
Cut cutSip(Octets octets, std::size_t known);

/// Finds a line that begins a message. The octets must begin at the start of a line.
Found findSip(Octets octets);

// ---- text ----

/// Returns the number of carriage returns and line feeds that the octets begin with.
std::size_t countLineEnds(Octets octets);

/// Returns the position after the empty line that ends a header, or npos. `known` of the octets were searched before.
std::size_t endOfHeader(std::string_view stream, std::size_t known);

/// Returns the value of the first header field with one of the names, or an empty text. `header` begins with the start
/// line. Continuation lines (RFC 3261 7.3.1) are part of the value.
std::string_view fieldOf(std::string_view header, std::string_view name, std::string_view shortName);

std::string_view textOf(Octets octets);
std::string_view trimmed(std::string_view value);
bool equalNocase(std::string_view a, std::string_view b);

}  // namespace voip
