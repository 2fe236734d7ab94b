#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "recorder/SnifferRequest.h"

namespace voip {

/// Decodes commands from a stream of bytes that arrives in pieces of any size. One thread at a time.
class CommandStream {
 public:
  static constexpr std::size_t kMaxAppended = 2000;  ///< bytes of one append()

  /// Sets whether commands with IPv6 addresses have a length of their own. To be called before the first byte.
  void setIpv6(bool on) { ipv6_ = on; }

  /// Returns how many bytes append() takes now, at most kMaxAppended. Not 0 after all whole commands have been taken.
  std::size_t room() const;

  /// Adds received bytes, at most room().
  void append(std::span<const std::uint8_t> bytes);

  /// Returns the number of bytes that are not decoded yet.
  std::size_t waiting() const { return total_; }

  /// True when a whole command waits.
  bool hasWhole() const { return total_ >= nextLength(); }

  /// Decodes the next command. A heartbeat changes only the code of `request`, not its address and port. Returns false,
  /// with `request` unchanged, when no whole command has arrived.
  bool take(SnifferRequest& request);

  /// Discards all bytes: a new stream begins.
  void restart() { offset_ = requestStart_ = total_ = 0; }

 private:
  /// Returns the length of the next command, or the shortest length before its first byte has arrived.
  std::size_t nextLength() const {
    return total_ == 0 ? SnifferRequest::kWireLength : SnifferRequest::wireLength(ring_[requestStart_], ipv6_);
  }

  bool ipv6_ = false;
  std::array<std::uint8_t, 2 * kMaxAppended> ring_{};
  std::size_t offset_ = 0;        ///< index of the next received byte
  std::size_t requestStart_ = 0;  ///< index of the next command
  std::size_t total_ = 0;         ///< bytes that are not decoded yet
};

}  // namespace voip
