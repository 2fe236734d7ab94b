#pragma once

#include <ostream>
#include <string>

#include "h323/base/PBYTEArray.h"
#include "h323/decoder/Arena.h"

namespace asn1 {

// The root of a message is printed as if it stood this deep.
inline constexpr unsigned kRootIndent = 6;

// Value notation: what follows the name of the value in its line, and the lines below it, `indent` blanks and more
// deep. Ends without a line feed.
void print(std::ostream& stream, const Value& value, unsigned indent);

// Sixteen octets a line, in hexadecimal and as characters. Nothing at all is one empty line.
void printOctets(std::ostream& stream, const PBYTEArray& octets, unsigned indent);

// The identifier of the chosen alternative, or its number in angle brackets.
std::string nameOf(const Value& choice);

}  // namespace asn1
