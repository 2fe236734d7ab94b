#pragma once

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

#include "support/Bytes.h"
#include "support/Eventually.h"

/// A socket of the test's recorder on the loopback device, closed with the object. No receiving call waits longer than
/// 30 seconds.
class Loopback {
 public:
  /// Takes ownership of a descriptor.
  explicit Loopback(int descriptor) : sd(descriptor) {
    const timeval patience{30, 0};
    setsockopt(sd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }
  /// Makes a socket bound to a port, 0 for any: `SOCK_STREAM`, which listens, or `SOCK_DGRAM`.
  explicit Loopback(int type, std::uint16_t port, int backlog = 8, in_addr_t host = INADDR_LOOPBACK)
      : Loopback(socket(AF_INET, type, 0)) {
    const int on = 1;
    setsockopt(sd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = at(port, host);
    EXPECT_EQ(bind(sd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    if (type == SOCK_STREAM) listen(sd, backlog);
  }
  Loopback(Loopback&& other) noexcept : sd(std::exchange(other.sd, -1)) {}
  Loopback& operator=(Loopback&& other) noexcept {
    std::swap(sd, other.sd);
    return *this;
  }
  ~Loopback() { close(); }

  /// Returns a socket address; both arguments are in host order.
  static sockaddr_in at(std::uint16_t port, in_addr_t host = INADDR_LOOPBACK) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(host);
    address.sin_port = htons(port);
    return address;
  }

  /// Returns the port that the socket is bound to, in host order.
  std::uint16_t port() const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(sd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
  }

  /// Sets the segment size of Ethernet and a receive buffer of 128 KiB for connections that are accepted later. The
  /// kernel enlarges other receive buffers up to tcp_rmem, which differs between machines. Segments of the loopback
  /// device are as large as the receive buffer: when it is full, it opens only when a timer of the kernel probes it.
  void limitSegments() const {
    const int size = 1448, buffer = 64 << 10;  // the kernel doubles the buffer
    setsockopt(sd, IPPROTO_TCP, TCP_MAXSEG, &size, sizeof size);
    setsockopt(sd, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
  }

  /// Returns the next connection.
  Loopback accept() const { return Loopback(::accept(sd, nullptr, nullptr)); }

  void close() {
    if (sd != -1) ::close(std::exchange(sd, -1));
  }

  void write(const Bytes& data) const {
    EXPECT_EQ(::write(sd, data.data(), data.size()), static_cast<ssize_t>(data.size()));
  }

  void writeTo(std::uint16_t to, const Bytes& data) const {
    const sockaddr_in address = at(to);
    sendto(sd, data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }

  /// Returns `size` bytes of the stream, or fewer at its end.
  Bytes read(std::size_t size) const {
    Bytes data(size);
    std::size_t got = 0;
    for (ssize_t n = 1; got < size && n > 0; got += n > 0 ? static_cast<std::size_t>(n) : 0) {
      n = recv(sd, data.data() + got, size - got, 0);
    }
    data.resize(got);
    return data;
  }

  /// Returns the next datagram; empty when none arrives.
  Bytes readDatagram() const {
    Bytes data(65536);
    const ssize_t n = recv(sd, data.data(), data.size(), 0);
    data.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    return data;
  }

  /// Returns the next whole frame of the stream; empty at its end.
  Bytes readFrame() const {
    Bytes frame = read(15);
    if (frame.size() < 15) return {};
    append(frame, read(static_cast<std::size_t>(frame[0] << 8 | frame[1]) - 15));
    return frame;
  }

  int sd;
};

/// Returns the system's function `name`, which a test replaces with its own.
template <typename Function>
Function* systemCall(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Returns the 7 bytes of a command.
inline Bytes command(int code, std::uint32_t address = 0, std::uint16_t port = 0) {
  Bytes wire;
  append(wire, static_cast<std::uint64_t>(code), 1);
  append(wire, address, 4);
  append(wire, port, 2);
  return wire;
}
