#pragma once

#include <array>
#include <span>

#include "recorder/SnifferRequest.h"

namespace voip {

/// Commands that come as a stream of bytes, in pieces of any size: a ring that takes bytes in and gives commands out.
class CommandStream {
 public:
  static constexpr std::size_t kMostAtOnce = 2000;

  /// Bytes that append() takes now, at most kMostAtOnce. Always some, once every whole command has been taken.
  std::size_t room() const;

  /// Takes in at most room() bytes.
  void append(std::span<const u_char> bytes);

  /// Bytes that are not decoded yet.
  std::size_t waiting() const { return total; }

  /// Decodes the next command. A heartbeat's address and port are skipped: those of `request` stay. False, with
  /// `request` as it was, while there is no whole one.
  bool take(SnifferRequest& request);

  /// Forgets what waits: another stream begins.
  void restart() { offset = requestStart = total = 0; }

 private:
  std::array<u_char, 2 * kMostAtOnce> ring{};
  std::size_t offset = 0;        ///< where the next received byte goes
  std::size_t requestStart = 0;  ///< first byte of the next command
  std::size_t total = 0;
};

}  // namespace voip
