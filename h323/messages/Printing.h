#pragma once

#include <ostream>
#include <string>

#include "h323/base/PBYTEArray.h"
#include "h323/decoder/Arena.h"

namespace asn1 {

/// The indentation of the root of a message.
inline constexpr unsigned kRootIndent = 6;

/// Writes a value in value notation, without a line feed at the end. The first line continues the line of the value's
/// name; the further lines are indented by at least `indent` blanks.
void print(std::ostream& stream, const Value& value, unsigned indent);

/// Writes sixteen octets a line, in hexadecimal and as characters; one empty line for no octets.
void printOctets(std::ostream& stream, const PBYTEArray& octets, unsigned indent);

/// Returns the identifier of the chosen alternative, or its number in angle brackets if the decoder does not know it.
std::string nameOf(const Value& choice);

}  // namespace asn1
