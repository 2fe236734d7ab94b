#pragma once

#include <array>
#include <cstdint>

#include "h323/base/PBYTEArray.h"
#include "h323/base/PString.h"

// A globally unique identifier: the name of a call or of a conference.
class OpalGloballyUniqueID {
 public:
  // From its 16 octets; any other number of octets gives the identifier of zeros.
  explicit OpalGloballyUniqueID(const PBYTEArray& octets);

  // 32 lower-case hexadecimal digits in the order of the octets, grouped 8-4-4-4-12 by "-".
  PString AsString() const;

 private:
  std::array<std::uint8_t, 16> octets_{};
};
