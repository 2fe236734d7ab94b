#include "h323/base/OpalGloballyUniqueID.h"

#include <algorithm>

OpalGloballyUniqueID::OpalGloballyUniqueID(const PBYTEArray& octets) {
  if (octets.GetSize() == octets_.size()) std::copy(octets.begin(), octets.end(), octets_.begin());
}

PString OpalGloballyUniqueID::AsString() const {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < octets_.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += kDigits[octets_[i] >> 4];
    text += kDigits[octets_[i] & 15];
  }
  return PString(text);
}
