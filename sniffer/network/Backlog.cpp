#include "network/Backlog.h"

#include <utility>

namespace voip {

namespace {

constexpr std::size_t kPieceOverhead = 128;  // of a piece in memory

}  // namespace

/// Returns the last piece, or a new one if that has octets.
Backlog::Piece& Backlog::open() {
  if (pieces_.empty() || !pieces_.back().octets().empty()) {
    pieces_.emplace_back();
    memory_ += kPieceOverhead;
  }
  return pieces_.back();
}

void Backlog::add(Octets octets, std::vector<std::uint8_t>* memory, bool isWhole, std::int64_t captured,
                  std::int64_t arrived) {
  Piece& piece = open();
  if (memory != nullptr) {
    piece.used = memory->size() - octets.size();
    piece.memory = std::move(*memory);
  } else {
    piece.memory.assign(octets.begin(), octets.end());
  }
  memory_ += piece.memory.size();
  piece.isWhole = isWhole;
  piece.captured = captured;
  piece.arrived = arrived;
}

void Backlog::lose(std::uint64_t count) {
  open().lost += count;
}

void Backlog::restart(bool isFromStart) {
  Piece& piece = open();
  piece.isRestart = true;
  piece.isFromStart = isFromStart;
  piece.lost = 0;
}

std::size_t Backlog::limit(std::size_t memory) {
  std::size_t dropped = 0;
  for (; memoryUsed() > memory && pieces_.size() > 1; ++dropped) {
    const Piece& oldest = pieces_.front();
    Piece& next = pieces_[1];
    if (!next.isRestart) {
      next.isRestart = oldest.isRestart;
      next.isFromStart = oldest.isFromStart;
      next.lost += oldest.lost + oldest.octets().size();
    }
    pop();
  }
  if (memoryUsed() > memory && !pieces_.empty() && !pieces_.front().octets().empty()) {
    dropOctets(pieces_.front());
    ++dropped;
  }
  return dropped;
}

void Backlog::dropOctets(Piece& piece) {
  memory_ -= piece.memory.size();
  piece.lost += piece.octets().size();
  piece.used = 0;
  piece.memory = {};
}

void Backlog::pop() {
  memory_ -= kPieceOverhead + pieces_.front().memory.size();
  pieces_.pop_front();
}

}  // namespace voip
