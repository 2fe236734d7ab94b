#pragma once

#include <sys/types.h>

#include <cstddef>

/// True when the payload begins with a SIP request line (RFC 3261, 25.1), whatever the scheme of its Request-URI: a
/// method token, a blank, one URI, a blank, and "SIP/2.0" at the end of the line, which ends with a line feed or with
/// the payload. Line ends in front of it (7.5) are passed over.
///
/// It stands beside SipHelper::isRequest(), which looks at less and so accepts what this does not. Reads nothing but
/// the `length` octets. Any thread.
bool isSipRequestWithAnyUri(const u_char* payload, std::size_t length);
