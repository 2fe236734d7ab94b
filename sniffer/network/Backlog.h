#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "network/Octets.h"

namespace voip {

/// Octets of a TCP stream that are in order but not split into messages yet, because the frames that brought them had
/// used up their Work. Losses and restarts between them are kept in their place. One thread.
class Backlog {
 public:
  struct Piece {
    bool isRestart = false;    ///< the stream restarts before the octets
    bool isFromStart = false;  ///< with the first octets of a connection
    std::uint64_t lost = 0;    ///< octets that are lost before these
    std::vector<std::uint8_t> memory;
    std::size_t used = 0;  ///< octets of `memory` that were dealt with
    bool isWhole = true;   ///< begins as its segment did
    std::int64_t captured = 0, arrived = 0;

    Octets octets() const { return Octets(memory).subspan(used); }
  };

  /// Adds octets. `memory`: the vector that ends with them, which is moved from; null: they are copied. `isWhole`: no
  /// octets of their segment were dealt with before.
  void add(Octets octets, std::vector<std::uint8_t>* memory, bool isWhole, std::int64_t captured, std::int64_t arrived);
  void lose(std::uint64_t count);
  void restart(bool isFromStart);

  /// Drops the oldest octets, as lost, until the others take at most this memory. Returns the number of pieces dropped.
  /// What was lost before the latest octets stays, in a piece without octets.
  std::size_t limit(std::size_t memory);

  bool empty() const { return pieces_.empty(); }
  std::size_t size() const { return pieces_.size(); }
  Piece& front() { return pieces_.front(); }
  const Piece& front() const { return pieces_.front(); }
  void pop();

  std::size_t memoryUsed() const { return sizeof(Backlog) + memory_; }

 private:
  Piece& open();
  void dropOctets(Piece& piece);

  std::deque<Piece> pieces_;
  std::size_t memory_ = 0;  ///< of the pieces, in bytes
};

}  // namespace voip
