#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

namespace voip {

/// The address and port of a socket, IPv4 or IPv6. A value, for one thread at a time.
class SocketAddress {
 public:
  /// 0.0.0.0:0
  SocketAddress() : ipv4_{} { ipv4_.sin_family = AF_INET; }

  /// Reads "10.0.0.5", "2001:db8::5", or a link-local address with its device: "fe80::5%eth0". Any other text is
  /// 255.255.255.255, where no recorder is. `port` is in host order.
  SocketAddress(const char* host, int port);

  /// Returns the address of the same family that stands for all addresses of this machine, and port 0.
  SocketAddress any() const;

  int family() const { return any_.sa_family; }

  /// True when both have the same address; the ports may differ.
  bool hasAddressOf(const SocketAddress& other) const;

  // As the functions of the system take it. `capacity()` is the size that a function may fill in.
  const sockaddr* data() const { return &any_; }
  sockaddr* data() { return &any_; }
  socklen_t size() const { return family() == AF_INET6 ? sizeof ipv6_ : sizeof ipv4_; }
  static constexpr socklen_t capacity() { return sizeof(sockaddr_in6); }

 private:
  union {
    sockaddr any_;
    sockaddr_in ipv4_;
    sockaddr_in6 ipv6_;
  };
};

}  // namespace voip
