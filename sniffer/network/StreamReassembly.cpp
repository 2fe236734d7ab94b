#include "network/StreamReassembly.h"

#include <algorithm>
#include <cstdlib>

namespace voip {

namespace {

constexpr std::int64_t kWindow = 1 << 20;              // sequence numbers further away belong to another connection
constexpr std::int64_t kBase = std::int64_t{1} << 32;  // so that no position is negative, or 0
constexpr std::size_t kOverhead = 128;                 // of an early segment in memory

/// True when a segment has octets beyond the first `old` ones, which were passed on before.
bool isNew(std::size_t old, Octets octets, std::size_t missing) {
  return old < octets.size() || (old == octets.size() && missing > 0);
}

}  // namespace

void StreamReassembly::start(std::uint32_t sequence, bool isFromStart) {
  next_ = kBase + sequence;
  disorder_.reset();
  first_ = sequence;
  isFromStart_ = isFromStart;
  hasEnded_ = false;
}

StreamReassembly::Position StreamReassembly::positionOf(std::uint32_t sequence) const {
  return next_ + static_cast<std::int32_t>(sequence - static_cast<std::uint32_t>(next_));
}

bool StreamReassembly::isFar(std::uint32_t sequence) const {
  return std::abs(positionOf(sequence) - next_) > kWindow;
}

// ---- segments ----

StreamReassembly::Placement StreamReassembly::take(const ArrivedSegment& segment, OctetReceiver& receiver) {
  const Position at = positionOf(segment.sequence);
  if (at == next_) {
    goOn(segment, 0, receiver);
    return Placement::kInOrder;
  }
  if (continuesRival(segment)) {
    adoptRival(receiver);
    goOn(segment, 0, receiver);
    return Placement::kInOrder;
  }
  if (isFar(segment.sequence) || (disorder_ != nullptr && at == disorder_->givenUp)) {
    keepRival(segment);
    return Placement::kUnexpected;
  }
  if (at > next_) return keepEarly(segment, at);
  const auto old = static_cast<std::size_t>(next_ - at);
  if (isNew(old, segment.octets, segment.missing)) {
    goOn(segment, old, receiver);
    return Placement::kInOrder;
  }
  if (segment.isLast && old == segment.octets.size() + segment.missing) hasEnded_ = true;
  return Placement::kRepeated;
}

/// Passes on an expected segment without its first `old` octets, which were passed on before.
void StreamReassembly::goOn(const ArrivedSegment& segment, std::size_t old, OctetReceiver& receiver) {
  Early rest;
  rest.missing = segment.missing;
  rest.isLast = segment.isLast;
  rest.captured = segment.captured;
  deliver(segment.octets.subspan(old), rest, receiver);
  if (disorder_ == nullptr) return;
  disorder_->waitsSince = segment.now;
  disorder_->givenUp = 0;
  disorder_->rival.reset();
  tidy();
}

void StreamReassembly::deliver(Octets octets, const Early& segment, OctetReceiver& receiver) {
  next_ += static_cast<Position>(octets.size() + segment.missing);
  hasEnded_ |= segment.isLast;
  if (!octets.empty()) receiver.takeOctets(octets, segment.captured);
  if (segment.missing > 0) receiver.loseOctets(segment.missing);
}

void StreamReassembly::takeEnd(std::uint32_t sequence) {
  const Position at = positionOf(sequence);
  if (at == next_) hasEnded_ = true;
  if (disorder_ == nullptr || disorder_->early.empty()) return;
  const auto last = std::prev(disorder_->early.end());
  if (at == last->second.end(last->first)) last->second.isLast = true;
}

// ---- early segments ----

StreamReassembly::Placement StreamReassembly::keepEarly(const ArrivedSegment& segment, Position at) {
  Disorder& kept = disorder();
  if (kept.early.empty()) kept.waitsSince = segment.now;
  const auto [place, isFirst] = kept.early.try_emplace(at);
  Early& early = place->second;
  if (!isFirst && early.octets.size() >= segment.octets.size()) return Placement::kRepeated;
  kept.earlySize += segment.octets.size() - early.octets.size() + (isFirst ? kOverhead : 0);
  early = {
      {segment.octets.begin(), segment.octets.end()}, segment.missing, segment.isLast, segment.captured, segment.now};
  return Placement::kEarly;
}

void StreamReassembly::acknowledge(std::uint32_t sequence) {
  const Position at = positionOf(sequence);
  if (disorder_ == nullptr || at <= next_ || isFar(sequence)) return;
  disorder_->acknowledged = std::max(disorder_->acknowledged, at);
}

bool StreamReassembly::isReady(const NetworkLimits& limits) const {
  const Position at = disorder_->early.begin()->first;
  return at <= next_ || at <= disorder_->acknowledged || disorder_->earlySize > limits.earlyMemory;
}

std::int64_t StreamReassembly::due(const NetworkLimits& limits) const {
  if (disorder_ == nullptr || disorder_->early.empty()) return kNever;
  return isReady(limits) ? disorder_->waitsSince : disorder_->waitsSince + limits.gapPatience;
}

bool StreamReassembly::release(std::int64_t now, const NetworkLimits& limits, OctetReceiver& receiver) {
  if (due(limits) > now || disorder_ == nullptr || disorder_->early.empty()) return false;
  Disorder& kept = *disorder_;
  const bool isOverdue = !isReady(limits);
  const auto front = kept.early.begin();
  const Position at = front->first;
  const Early early = std::move(front->second);
  kept.early.erase(front);
  kept.earlySize -= early.octets.size() + kOverhead;
  if (at > next_) {
    kept.givenUp = isOverdue ? next_ : 0;
    giveUpGap(at, receiver);
  }
  const auto old = static_cast<std::size_t>(next_ - at);
  if (isNew(old, early.octets, early.missing)) {
    deliver(Octets(early.octets).subspan(old), early, receiver);
  } else if (early.isLast && early.end(at) == next_) {
    hasEnded_ = true;
  }
  if (!kept.early.empty()) kept.waitsSince = std::max(kept.waitsSince, kept.early.begin()->second.arrived);
  tidy();
  return true;
}

void StreamReassembly::giveUpGap(Position to, OctetReceiver& receiver) {
  const auto count = static_cast<std::uint64_t>(to - next_);
  next_ = to;
  receiver.loseOctets(count);
}

// ---- rival numbers ----

void StreamReassembly::takeSyn(std::uint32_t first) {
  if (isFromStart_ && first == first_) return;  // the same SYN again
  disorder().rival = Rival{first, first, true, {}};
}

bool StreamReassembly::continuesRival(const ArrivedSegment& segment) const {
  return disorder_ != nullptr && disorder_->rival && disorder_->rival->next == segment.sequence;
}

void StreamReassembly::keepRival(const ArrivedSegment& segment) {
  std::optional<Rival>& rival = disorder().rival;
  // Segments of the connection that a SYN announced may arrive out of order.
  const auto ahead = static_cast<std::int32_t>(segment.sequence - (rival ? rival->next : 0));
  if (rival && rival->isSyn && ahead > 0 && ahead < kWindow) return;
  const auto length = static_cast<std::uint32_t>(segment.octets.size() + segment.missing);
  Early start{
      {segment.octets.begin(), segment.octets.end()}, segment.missing, segment.isLast, segment.captured, segment.now};
  rival = Rival{segment.sequence, segment.sequence + length, false, std::move(start)};
}

void StreamReassembly::adoptRival(OctetReceiver& receiver) {
  const Rival rival = std::move(*disorder_->rival);
  start(rival.first, rival.isSyn);
  receiver.restart(rival.isSyn);
  deliver(rival.start.octets, rival.start, receiver);
}

void StreamReassembly::releaseRival(OctetReceiver& receiver) {
  if (disorder_ != nullptr && disorder_->rival && !disorder_->rival->isSyn) adoptRival(receiver);
}

// ---- memory ----

StreamReassembly::Disorder& StreamReassembly::disorder() {
  if (disorder_ == nullptr) disorder_ = std::make_unique<Disorder>();
  return *disorder_;
}

void StreamReassembly::tidy() {
  if (disorder_->early.empty() && disorder_->givenUp == 0 && !disorder_->rival) disorder_.reset();
}

std::size_t StreamReassembly::memoryUsed() const {
  if (disorder_ == nullptr) return 0;
  const std::size_t rival = disorder_->rival ? disorder_->rival->start.octets.size() : 0;
  return sizeof(Disorder) + disorder_->earlySize + rival;
}

}  // namespace voip
