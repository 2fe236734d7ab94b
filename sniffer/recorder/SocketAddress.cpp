#include "recorder/SocketAddress.h"

#include <arpa/inet.h>
#include <net/if.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "base/HostText.h"

namespace voip {

SocketAddress::SocketAddress(const char* host, int port) : ipv6_{} {
  const std::string text = host;
  const in_port_t wirePort = htons(static_cast<std::uint16_t>(port));
  if (!isIpv6Host(text)) {
    ipv4_.sin_family = AF_INET;
    ipv4_.sin_addr.s_addr = inet_addr(host);
    ipv4_.sin_port = wirePort;
    return;
  }
  ipv6_.sin6_family = AF_INET6;
  ipv6_.sin6_port = wirePort;
  const std::size_t percent = text.find('%');
  inet_pton(AF_INET6, text.substr(0, percent).c_str(), &ipv6_.sin6_addr);
  if (percent != std::string::npos) ipv6_.sin6_scope_id = if_nametoindex(text.c_str() + percent + 1);
}

SocketAddress SocketAddress::any() const {
  SocketAddress result;
  result.ipv6_ = {};  // in6addr_any and INADDR_ANY are zero
  result.any_.sa_family = any_.sa_family;
  return result;
}

bool SocketAddress::hasAddressOf(const SocketAddress& other) const {
  if (family() != other.family()) return false;
  if (family() == AF_INET) return ipv4_.sin_addr.s_addr == other.ipv4_.sin_addr.s_addr;
  return std::memcmp(&ipv6_.sin6_addr, &other.ipv6_.sin6_addr, sizeof ipv6_.sin6_addr) == 0 &&
         ipv6_.sin6_scope_id == other.ipv6_.sin6_scope_id;
}

}  // namespace voip
