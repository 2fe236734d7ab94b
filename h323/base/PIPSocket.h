#pragma once

#include <array>
#include <cstdint>
#include <ostream>

#include "h323/base/PBYTEArray.h"
#include "h323/base/PString.h"

class PIPSocket {
 public:
  /// An IPv4 address.
  class Address {
   public:
    /// 0.0.0.0
    Address() = default;
    /// `networkOrder` is the address as in_addr::s_addr holds it: 32 bits in network byte order.
    explicit Address(std::uint32_t networkOrder);
    /// `octets` are the four octets in the order in which they are written. Any other number of octets makes 0.0.0.0.
    explicit Address(const PBYTEArray& octets);

    /// Returns four decimal numbers joined by ".".
    PString AsString() const;

    friend std::ostream& operator<<(std::ostream& stream, const Address& address) {
      return stream << address.AsString();
    }

   private:
    std::array<std::uint8_t, 4> octets_{};
  };
};
