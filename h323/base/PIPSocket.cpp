#include "h323/base/PIPSocket.h"

#include <algorithm>
#include <cstring>

PIPSocket::Address::Address(std::uint32_t networkOrder) {
  std::memcpy(octets_.data(), &networkOrder, octets_.size());
}

PIPSocket::Address::Address(const PBYTEArray& octets) {
  if (octets.GetSize() == octets_.size()) std::copy(octets.begin(), octets.end(), octets_.begin());
}

PString PIPSocket::Address::AsString() const {
  std::string text;
  for (const unsigned octet : octets_) {
    if (!text.empty()) text += '.';
    text += std::to_string(octet);
  }
  return PString(text);
}
