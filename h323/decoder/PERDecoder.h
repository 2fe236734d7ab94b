#pragma once

#include "h323/decoder/Arena.h"
#include "h323/decoder/PPER_Stream.h"

namespace asn1 {

// Clauses of X.691, here and in the sources, are those of its edition of July 2002.

// SEQUENCE, SEQUENCE OF and CHOICE inside each other: messages that go deeper do not decode.
inline constexpr unsigned kMaxDepth = 64;

// Decodes the next value of `type`, which need not be the last one in `stream`, into `arena`, whose former values end
// here. Answers kAbsent, and leaves the stream failed, when the octets end early, break a constraint that has no
// extension marker, or exceed a limit (kMaxDepth, Arena, the stream's Effort).
//
// Extension additions and alternatives that `type` does not know are skipped by their length, the value of such an
// alternative becomes an open type. An IA5String keeps characters above 127, which some senders write in names, and an
// INTEGER beyond 64 bits becomes the nearest one within.
const Value& decode(const Type& type, PPER_Stream& stream, Arena& arena);

}  // namespace asn1
