#pragma once

#include <array>
#include <cstdint>

#include "h323/base/PBYTEArray.h"
#include "h323/base/PString.h"

/// The globally unique identifier of a call or of a conference.
class OpalGloballyUniqueID {
 public:
  /// `octets` are the 16 octets of the identifier. Any other number of octets makes the identifier of zeros.
  explicit OpalGloballyUniqueID(const PBYTEArray& octets);

  /// Returns 32 lower-case hexadecimal digits in the order of the octets, grouped 8-4-4-4-12 by "-".
  PString AsString() const;

 private:
  std::array<std::uint8_t, 16> octets_{};
};
