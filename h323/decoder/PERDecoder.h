#pragma once

#include "h323/decoder/Arena.h"
#include "h323/decoder/PPER_Stream.h"

namespace asn1 {

// Clause numbers of X.691, here and in the sources, are those of the edition of July 2002.

/// The limit of nested SEQUENCE, SEQUENCE OF and CHOICE values. A deeper message does not decode.
inline constexpr unsigned kMaxDepth = 64;

/// Decodes the next value of `type` from `stream` into `arena`, whose earlier values become invalid. More octets may
/// follow the value in the stream. Returns kAbsent and fails the stream when the octets end early, violate a constraint
/// that has no extension marker, or exceed a limit (kMaxDepth, Arena, the stream's Effort).
///
/// Extension additions that `type` does not know are skipped by their length. The value of an alternative that `type`
/// does not know becomes an open type. An IA5String keeps characters above 127, because some senders write them in
/// names. An INTEGER beyond 64 bits becomes the nearest 64-bit number.
const Value& decode(const Type& type, PPER_Stream& stream, Arena& arena);

}  // namespace asn1
