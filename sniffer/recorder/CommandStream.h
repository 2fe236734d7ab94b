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

  /// Returns how many bytes append() takes now, at most kMaxAppended. Not 0 after all whole commands have been taken.
  std::size_t room() const;

  /// Adds received bytes, at most room().
  void append(std::span<const std::uint8_t> bytes);

  /// Returns the number of bytes that are not decoded yet.
  std::size_t waiting() const { return total_; }

  /// Decodes the next command. A heartbeat changes only the code of `request`, not its address and port. Returns false,
  /// with `request` unchanged, when no whole command has arrived.
  bool take(SnifferRequest& request);

  /// Discards all bytes: a new stream begins.
  void restart() { offset_ = requestStart_ = total_ = 0; }

 private:
  std::array<std::uint8_t, 2 * kMaxAppended> ring_{};
  std::size_t offset_ = 0;        ///< index of the next received byte
  std::size_t requestStart_ = 0;  ///< index of the next command
  std::size_t total_ = 0;         ///< bytes that are not decoded yet
};

}  // namespace voip
