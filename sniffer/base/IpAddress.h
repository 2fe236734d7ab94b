#pragma once

#include <arpa/inet.h>
#include <endian.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace voip {

/// An IPv4 or IPv6 address: two numbers in host order. Of an IPv4 address the first one is a constant that no IPv6
/// address begins with, so that one comparison tells the families apart. Any thread.
class IpAddress {
 public:
  static constexpr std::size_t kSize = 16;  ///< octets on the wire

  /// 0.0.0.0
  constexpr IpAddress() = default;

  /// An IPv4 address in host order.
  constexpr IpAddress(std::uint32_t ipv4) : low_(ipv4) {}

  /// Reads kSize octets of an IPv6 address, in network order. An IPv4-mapped address (RFC 4291 2.5.5.2) is that IPv4
  /// address. Where the first 64 bits are ones, which is no address of a host, the result is 0.0.0.0.
  static IpAddress read(const std::uint8_t* octets) {
    std::uint64_t numbers[2];
    std::memcpy(numbers, octets, kSize);
    IpAddress address;
    const std::uint64_t high = be64toh(numbers[0]), low = be64toh(numbers[1]);
    if (high == 0 && low >> 32 == kMapped >> 32) {
      address.low_ = static_cast<std::uint32_t>(low);
    } else if (high != kIpv4) {
      address.high_ = high;
      address.low_ = low;
    }
    return address;
  }

  /// Writes kSize octets, in network order. An IPv4 address is written as an IPv4-mapped one.
  void write(std::uint8_t* octets) const {
    const std::uint64_t numbers[] = {isIpv4() ? 0 : htobe64(high_), htobe64(isIpv4() ? kMapped | low_ : low_)};
    std::memcpy(octets, numbers, kSize);
  }

  constexpr bool isIpv4() const { return high_ == kIpv4; }

  /// True for an address that is unique on its link only (fe80::/10, RFC 4291 2.5.6).
  constexpr bool isLinkLocal() const { return high_ >> 54 == 0xFE80 >> 6; }

  /// Returns an IPv4 address in host order. Of an IPv6 address, returns its last 32 bits.
  constexpr std::uint32_t ipv4() const { return static_cast<std::uint32_t>(low_); }

  // Two numbers in host order that identify the address: the halves of an IPv6 address.
  constexpr std::uint64_t high() const { return high_; }
  constexpr std::uint64_t low() const { return low_; }

  constexpr bool operator==(const IpAddress&) const = default;

  /// Returns "10.1.2.3", or "2001:db8::1" (RFC 5952).
  std::string text() const {
    std::uint8_t octets[kSize];
    write(octets);
    char text[INET6_ADDRSTRLEN];
    if (isIpv4()) return inet_ntop(AF_INET, octets + 12, text, sizeof text);
    if (isIpv4Compatible()) {  // inet_ntop() writes a part of these in decimal
      std::snprintf(text, sizeof text, "::%x:%x", static_cast<unsigned>(low_ >> 16),
                    static_cast<unsigned>(low_ & 0xFFFF));
      return text;
    }
    return inet_ntop(AF_INET6, octets, text, sizeof text);
  }

  /// Returns "10.1.2.3", or "[2001:db8::1]": the address as a part of a longer text.
  std::string bracketed() const { return isIpv4() ? text() : "[" + text() + "]"; }

  /// Returns "10.1.2.3:5060" or "[2001:db8::1]:5060".
  std::string textWithPort(std::uint16_t port) const { return bracketed() + ":" + std::to_string(port); }

 private:
  static constexpr std::uint64_t kIpv4 = ~std::uint64_t{0};
  static constexpr std::uint64_t kMapped = 0xFFFF'0000'0000;

  /// True for an address of which only the last two groups are not zero (RFC 4291 2.5.5.1).
  constexpr bool isIpv4Compatible() const { return high_ == 0 && low_ >> 32 == 0 && low_ > 0xFFFF; }

  std::uint64_t high_ = kIpv4, low_ = 0;
};

}  // namespace voip
