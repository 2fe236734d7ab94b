#pragma once

#include <arpa/inet.h>

#include <optional>
#include <string>

#include "base/IpAddress.h"

namespace voip {

// Any thread may call these functions.

/// Returns true for the text of an IPv6 address; a link-local one may end in its device: "fe80::1%eth0".
inline bool isIpv6Host(const std::string& text) {
  const std::size_t percent = text.find('%');
  in6_addr ignored;
  return percent != text.size() - 1 && inet_pton(AF_INET6, text.substr(0, percent).c_str(), &ignored) == 1;
}

/// Returns true for the text of an IPv4 address in dotted-decimal form, or an IPv6 address as above.
inline bool isHost(const std::string& text) {
  in_addr ignored;
  return inet_pton(AF_INET, text.c_str(), &ignored) == 1 || isIpv6Host(text);
}

/// Returns the address of a text as above; an IPv4-mapped address (RFC 4291 2.5.5.2) is that IPv4 address. Returns
/// nothing for another text.
inline std::optional<IpAddress> readHost(const std::string& text) {
  in_addr ipv4;
  if (inet_pton(AF_INET, text.c_str(), &ipv4) == 1) return IpAddress(ntohl(ipv4.s_addr));
  std::uint8_t octets[IpAddress::kSize];
  if (inet_pton(AF_INET6, text.substr(0, text.find('%')).c_str(), octets) != 1) return std::nullopt;
  return IpAddress::read(octets);
}

/// Returns true for the text of an address that stands for all addresses of a machine: "0.0.0.0", "::".
inline bool isAnyHost(const std::string& text) {
  const auto host = readHost(text);
  return host && host->ipv4() == 0 && (host->isIpv4() || (host->high() == 0 && host->low() == 0));
}

/// Returns true for the text of a multicast address, or of the broadcast address.
inline bool isGroupHost(const std::string& text) {
  const auto host = readHost(text);
  if (!host) return false;
  if (!host->isIpv4()) return host->high() >> 56 == 0xFF;
  return IN_MULTICAST(host->ipv4()) || host->ipv4() == INADDR_BROADCAST;
}

/// Returns the one form of all texts that lead to the same host: "::FFFF:10.0.0.12" is 10.0.0.12, and a connection to
/// "0.0.0.0" or "::" leads to this machine. Any other text than that of an address is returned as it is.
inline std::string canonicalHost(const std::string& text) {
  const auto host = readHost(text);
  if (!host) return text;
  if (isAnyHost(text)) return host->isIpv4() ? "127.0.0.1" : "::1";
  const std::size_t percent = text.find('%');
  return host->text() + (percent != std::string::npos ? text.substr(percent) : "");
}

/// Returns true for the text of a link-local IPv6 address without its device, which leads nowhere.
inline bool lacksDevice(const std::string& text) {
  in6_addr address;
  return inet_pton(AF_INET6, text.c_str(), &address) == 1 && IN6_IS_ADDR_LINKLOCAL(&address);
}

/// Returns "10.1.2.3:6000" or "[2001:db8::1]:6000".
inline std::string hostAndPort(const std::string& host, int port) {
  return (host.find(':') == std::string::npos ? host : "[" + host + "]") + ":" + std::to_string(port);
}

}  // namespace voip
