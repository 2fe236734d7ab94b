#include "network/StreamReassembly.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace voip {

namespace {

constexpr std::int64_t kBase = std::int64_t{1} << 32;  // so that no position is negative, or 0
constexpr std::int64_t kPlainWindow = 65'535;          // the window of a receiver that does not scale it (RFC 7323)
constexpr std::size_t kOverhead = 128;                 // of an early segment in memory
constexpr std::int64_t kConfirmation = 2'000'000;      // microseconds in which an acknowledgement counts
constexpr std::size_t kMostMarks = 8;

/// True when a segment has octets beyond the first `old` ones, which were passed on before.
bool isNew(std::size_t old, Octets octets, std::size_t missing) {
  return old < octets.size() || (old == octets.size() && missing > 0);
}

}  // namespace

void StreamReassembly::start(std::uint32_t sequence, bool isFromStart) {
  next_ = kBase + sequence;
  disorder_.reset();
  lastSize_ = 0;
  first_ = sequence;
  isFromStart_ = isFromStart;
  hasEnded_ = false;
}

bool StreamReassembly::isFar(std::uint32_t sequence) const {
  return std::abs(positionOf(sequence) - next_) > kWindow;
}

bool StreamReassembly::isAhead(std::uint32_t sequence) const {
  return positionOf(sequence) >= next_ && !isFar(sequence);
}

bool StreamReassembly::isPlausible(std::uint32_t sequence) const {
  if (!isFar(sequence)) return true;
  return disorder_ != nullptr && std::any_of(disorder_->marks.begin(), disorder_->marks.end(),
                                             [&](const Mark& mark) { return mark.covers(sequence); });
}

// ---- segments ----

StreamReassembly::Placement StreamReassembly::take(const ArrivedSegment& segment, OctetReceiver& receiver) {
  const Position at = positionOf(segment.sequence);
  const Position old = next_ - at;
  if (old != 0 && prolong(segment)) return Placement::kUnexpected;
  if (old != 0 && resume(segment.sequence, receiver)) {
    goOn(segment, 0, receiver);
    return Placement::kInOrder;
  }
  if (old > 0 && contradicts(segment)) {
    keepContradiction(segment, last_, static_cast<std::uint32_t>(next_) - last_);
    return Placement::kUnexpected;
  }
  if (old > 0 && !isFromStart_ && first_ - 1 - segment.sequence < kWindow) {
    keepContradiction(segment, first_ - kWindow, kWindow);
    return Placement::kUnexpected;
  }
  if (old >= 0 && isNew(static_cast<std::size_t>(old), segment.octets, segment.missing)) {
    goOn(segment, static_cast<std::size_t>(old), receiver);
    return Placement::kInOrder;
  }
  if (keepAtMark(segment)) return Placement::kUnexpected;
  if (isFar(segment.sequence)) {
    keepRival(segment);
    return Placement::kUnexpected;
  }
  if (at > next_) return keepEarly(segment, at);
  if (segment.isLast && at + segment.length() == next_) hasEnded_ = true;
  return Placement::kRepeated;
}

/// Passes on an expected segment without its first `old` octets, which were passed on before.
void StreamReassembly::goOn(const ArrivedSegment& segment, std::size_t old, OctetReceiver& receiver) {
  Early rest;
  rest.missing = segment.missing;
  rest.isLast = segment.isLast;
  rest.captured = segment.captured;
  if (disorder_ == nullptr) {
    deliver(segment.octets.subspan(old), rest, receiver);
    return;
  }
  if (const std::size_t repeated = skipPassed(segment, old, receiver); repeated <= segment.octets.size()) {
    deliver(segment.octets.subspan(repeated), rest, receiver);
  }
  disorder_->waitsSince = segment.now;
  disorder_->rival.reset();
  tidy();
}

/// Passes on octets, which are the end of those of the segment or in the captured frame.
void StreamReassembly::deliver(Octets octets, Early& segment, OctetReceiver& receiver) {
  passLeft(receiver);
  last_ = static_cast<std::uint32_t>(next_);
  lastSize_ = static_cast<std::uint32_t>(octets.size());
  lastFront_.set(octets);
  lastBack_.set(octets.last(lastFront_.size));
  next_ += static_cast<Position>(octets.size());
  hasEnded_ |= segment.isLast;
  const bool isOwned = !segment.octets.empty();
  if (!octets.empty()) receiver.takeOctets(octets, segment.captured, isOwned ? &segment.octets : nullptr);
  if (segment.missing == 0) return;
  // The length of the segment may be forged.
  giveUpGap(next_ + static_cast<Position>(segment.missing), {}, receiver);
}

void StreamReassembly::takeEnd(std::uint32_t sequence) {
  const Position at = positionOf(sequence);
  if (at == next_) hasEnded_ = true;
  if (disorder_ == nullptr || disorder_->early.empty()) return;
  const auto last = std::prev(disorder_->early.end());
  if (at == last->second.end(last->first)) last->second.isLast = true;
}

bool StreamReassembly::knowsEnd() const {
  return earlyCount() > 0 && disorder_->early.rbegin()->second.isLast;
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
  if (disorder_ == nullptr) return;
  Disorder& kept = *disorder_;
  const auto confirm = [&](std::unique_ptr<Candidate>& one) {
    if (one == nullptr || one->isSyn || one->next != sequence) return;
    one->isConfirmed = kept.isConfirmed = true;
  };
  confirm(kept.rival);
  for (Mark& mark : kept.marks) confirm(mark.candidate);

  const Position at = positionOf(sequence);
  if (kept.early.empty() || at <= next_) return;
  const auto last = std::prev(kept.early.end());
  const bool isCaptured = kept.early.size() > 1 && at <= last->second.end(last->first);
  if (isCaptured || at - next_ <= kPlainWindow) kept.acknowledged = std::max(kept.acknowledged, at);
}

bool StreamReassembly::isReady(const NetworkLimits& limits) const {
  const Position at = disorder_->early.begin()->first;
  const Disorder& kept = *disorder_;
  return at <= next_ || at <= kept.acknowledged || kept.earlySize > limits.earlyMemory || kept.isConfirmed;
}

std::int64_t StreamReassembly::earlyDue(const NetworkLimits& limits) const {
  if (disorder_->early.empty()) return kNever;
  return isReady(limits) ? disorder_->waitsSince : disorder_->waitsSince + limits.gapPatience;
}

std::int64_t StreamReassembly::due(const NetworkLimits& limits) const {
  if (disorder_ == nullptr) return kNever;
  return disorder_->isConfirmed ? 0 : std::min(earlyDue(limits), disorder_->confirmBy);
}

bool StreamReassembly::release(std::int64_t now, const NetworkLimits& limits, OctetReceiver& receiver) {
  if (due(limits) > now) return false;
  Disorder& kept = *disorder_;
  if (kept.early.empty() && std::exchange(kept.isConfirmed, false) && adoptConfirmed(receiver)) return true;
  if (kept.confirmBy <= now) kept.confirmBy = kNever;
  if (earlyDue(limits) > now) return false;
  const auto front = kept.early.begin();
  const Position at = front->first;
  Early early = std::move(front->second);
  kept.early.erase(front);
  kept.earlySize -= early.octets.size() + kOverhead;
  if (at > next_) giveUpGap(at, early.octets, receiver);
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

void StreamReassembly::giveUpGap(Position to, Octets after, OctetReceiver& receiver) {
  leaveMark(static_cast<std::uint32_t>(to), after);
  disorder_->runStart = disorder_->markedAt = to;
  skipTo(to, receiver);
}

void StreamReassembly::skipTo(Position to, OctetReceiver& receiver) {
  const auto count = static_cast<std::uint64_t>(to - next_);
  next_ = to;
  if (disorder_ == nullptr || disorder_->leftAt == kNever) {
    receiver.loseOctets(count);
    return;
  }
  receiver.restart(false);
  if (next_ >= disorder_->leftAt) disorder_->leftAt = kNever;
}

/// Restarts the receiver when the expected octet is the one that was left for an earlier numbering: the message before
/// it may be forged, and its length must not hide what follows. Octets across that place are the sender's own.
void StreamReassembly::passLeft(OctetReceiver& receiver) {
  if (disorder_ == nullptr || next_ < disorder_->leftAt) return;
  if (std::exchange(disorder_->leftAt, kNever) == next_) receiver.restart(false);
}

// ---- other numberings ----

void StreamReassembly::takeSyn(std::uint32_t first) {
  if (isFromStart_ && first == first_) return;  // the same SYN again
  auto candidate = std::make_unique<Candidate>();
  candidate->first = candidate->next = first;
  candidate->isSyn = true;
  disorder().rival = std::move(candidate);
}

std::unique_ptr<StreamReassembly::Candidate> StreamReassembly::candidateOf(const ArrivedSegment& segment) {
  auto candidate = std::make_unique<Candidate>();
  candidate->first = candidate->next = segment.sequence;
  candidate->add(segment);
  return candidate;
}

void StreamReassembly::Candidate::add(const ArrivedSegment& segment) {
  next += static_cast<std::uint32_t>(segment.length());
  memory += sizeof(Early) + segment.octets.size();
  segments.push_back(
      {{segment.octets.begin(), segment.octets.end()}, segment.missing, segment.isLast, segment.captured, segment.now});
}

/// Returns false when the segment is at no mark.
bool StreamReassembly::keepAtMark(const ArrivedSegment& segment) {
  if (disorder_ == nullptr) return false;
  for (Mark& mark : disorder_->marks) {
    if (!mark.covers(segment.sequence) && mark.from - segment.sequence >= segment.octets.size()) continue;
    mark.candidate = candidateOf(segment);
    disorder_->confirmBy = segment.now + kConfirmation;
    return true;
  }
  return false;
}

/// Keeps a segment at a mark, because it shows that the octets passed on there may be forged.
void StreamReassembly::keepContradiction(const ArrivedSegment& segment, std::uint32_t from, std::uint32_t length) {
  if (!keepAtMark(segment)) addMark({from, length, next_ - length - disorder().runStart, {}, candidateOf(segment)});
  disorder_->confirmBy = segment.now + kConfirmation;
}

void StreamReassembly::keepRival(const ArrivedSegment& segment) {
  Disorder& kept = disorder();
  // Segments of the connection that a SYN announced may arrive out of order.
  const auto ahead = static_cast<std::int32_t>(segment.sequence - (kept.rival != nullptr ? kept.rival->next : 0));
  if (kept.rival != nullptr && kept.rival->isSyn && ahead > 0 && ahead < kWindow) return;
  kept.rival = candidateOf(segment);
  kept.confirmBy = segment.now + kConfirmation;
}

/// Adds a segment to the numbering that it continues, while that waits for the early segments of the present one.
bool StreamReassembly::prolong(const ArrivedSegment& segment) {
  if (disorder_ == nullptr || disorder_->early.empty()) return false;
  const auto add = [&](const std::unique_ptr<Candidate>& one) {
    if (one == nullptr || one->next != segment.sequence) return false;
    if (!one->segments.empty() && one->segments.back().missing > 0) return false;
    one->add(segment);
    one->isConfirmed = disorder_->isConfirmed = true;
    return true;
  };
  const std::vector<Mark>& marks = disorder_->marks;
  return std::any_of(marks.begin(), marks.end(), [&](const Mark& mark) { return add(mark.candidate); }) ||
         add(disorder_->rival);
}

/// Makes `sequence` the expected number when it continues another numbering. Returns false when it does not.
bool StreamReassembly::resume(std::uint32_t sequence, OctetReceiver& receiver) {
  if (disorder_ == nullptr) return false;
  const auto isContinued = [&](const std::unique_ptr<Candidate>& one) {
    return one != nullptr && one->next == sequence;
  };
  Disorder& kept = *disorder_;
  for (std::size_t i = 0; i < kept.marks.size(); ++i) {
    if (!isContinued(kept.marks[i].candidate)) continue;
    returnTo(i, receiver);
    return true;
  }
  if (isContinued(kept.rival)) {
    adopt(std::move(*kept.rival), 0, receiver);
    return true;
  }
  const Passed passed = kept.passed;
  if (passed.to == 0 || next_ != passed.from || positionOf(sequence) != passed.to) return false;
  kept.passed = {};
  skipTo(passed.to, receiver);
  return true;
}

/// Adopts the candidate that the other side has acknowledged. Returns false when a later one has replaced it.
bool StreamReassembly::adoptConfirmed(OctetReceiver& receiver) {
  Disorder& kept = *disorder_;
  for (std::size_t i = 0; i < kept.marks.size(); ++i) {
    const auto& candidate = kept.marks[i].candidate;
    if (candidate == nullptr || !candidate->isConfirmed) continue;
    returnTo(i, receiver);
    return true;
  }
  if (kept.rival == nullptr || !kept.rival->isConfirmed) return false;
  adopt(std::move(*kept.rival), 0, receiver);
  return true;
}

void StreamReassembly::returnTo(std::size_t number, OctetReceiver& receiver) {
  std::vector<Mark>& marks = disorder_->marks;
  Mark mark = std::move(marks[number]);
  marks.erase(marks.begin() + static_cast<std::ptrdiff_t>(number));
  const std::uint32_t from = mark.from + mark.length;
  auto length = static_cast<std::uint32_t>(next_) - from;  // passed on after the mark, up to the next one
  for (const Mark& other : marks) length = std::min(length, other.from - from);
  const std::uint32_t gap = mark.candidate->first - mark.from;
  const bool leavesGap = gap > 0 && mark.covers(mark.candidate->first);
  adopt(std::move(*mark.candidate), leavesGap ? 0 : mark.weight, receiver);
  if (leavesGap) addMark({mark.from, gap, mark.weight, {}, nullptr});
  if (mark.after.isFull() && length <= std::uint32_t{kWindow})
    disorder().passed = {positionOf(from), positionOf(from) + length, mark.after};
}

void StreamReassembly::adopt(Candidate candidate, Position weight, OctetReceiver& receiver) {
  Disorder& kept = *disorder_;
  const bool isNear = !isFar(candidate.first);
  if (candidate.isSyn || !isNear || isAhead(candidate.first)) {
    leaveMark(candidate.first, {});
  } else if (kept.leftAt == kNever) {
    kept.leftAt = next_;  // segments there will be early
  }
  const Position left = isNear && kept.leftAt != kNever ? kept.leftAt : 0;
  std::vector<Mark> marks = std::move(kept.marks);
  start(candidate.first, candidate.isSyn);
  disorder().marks = std::move(marks);
  if (left != 0) disorder_->leftAt = std::max(next_, positionOf(static_cast<std::uint32_t>(left)));
  disorder_->runStart = next_ - weight;
  disorder_->markedAt = next_;
  receiver.restart(candidate.isSyn);
  for (Early& segment : candidate.segments) deliver(segment.octets, segment, receiver);
}

void StreamReassembly::releaseUnconfirmed(OctetReceiver& receiver) {
  if (disorder_ == nullptr) return;
  const auto passOn = [&](const std::unique_ptr<Candidate>& one) {
    if (one == nullptr || one->isSyn) return;
    receiver.restart(false);
    for (Early& segment : one->segments) receiver.takeOctets(segment.octets, segment.captured, &segment.octets);
  };
  for (const Mark& mark : disorder_->marks) passOn(mark.candidate);
  passOn(disorder_->rival);
}

// ---- marks ----

/// Marks the expected octet before the numbering changes to `to`, where `after` begins.
void StreamReassembly::leaveMark(std::uint32_t to, Octets after) {
  const auto from = static_cast<std::uint32_t>(next_);
  const Position distance = static_cast<std::int32_t>(to - from);
  const bool isGap = distance > 0 && distance <= kWindow;
  Mark mark{from, static_cast<std::uint32_t>(isGap ? distance : kWindow), next_ - disorder().runStart, {}, nullptr};
  mark.after.set(after);
  addMark(std::move(mark));
}

void StreamReassembly::addMark(Mark mark) {
  disorder().markedAt = next_;
  std::vector<Mark>& marks = disorder_->marks;
  marks.push_back(std::move(mark));
  if (marks.size() <= kMostMarks || mergeGaps()) return;
  marks.erase(
      std::min_element(marks.begin(), marks.end(), [](const Mark& a, const Mark& b) { return a.weight < b.weight; }));
}

/// Merges the two gaps with the fewest octets between them, because a forged early segment may have divided them.
/// Returns false when all marks belong to different numberings.
bool StreamReassembly::mergeGaps() {
  std::vector<Mark>& marks = disorder_->marks;
  Mark* before = nullptr;
  auto after = marks.end();
  for (Mark& first : marks) {
    for (auto second = marks.begin(); second != marks.end(); ++second) {
      if (!second->follows(first) || (before != nullptr && second->weight >= after->weight)) continue;
      before = &first;
      after = second;
    }
  }
  if (before == nullptr) return false;
  before->length = after->from + after->length - before->from;
  before->after = after->after;
  if (before->candidate == nullptr) before->candidate = std::move(after->candidate);
  marks.erase(after);
  return true;
}

void StreamReassembly::Sample::set(Octets segment) {
  size = static_cast<std::uint8_t>(std::min(octets.size(), segment.size()));
  if (isFull()) {
    std::memcpy(octets.data(), segment.data(), octets.size());  // the usual case, of constant size
  } else {
    std::copy_n(segment.begin(), size, octets.begin());
  }
}

/// Compares the octets after the first `skipped` ones.
bool StreamReassembly::Sample::agreesWith(Octets segment, std::size_t skipped) const {
  const std::size_t known = std::min(size - skipped, segment.size());
  return std::equal(octets.begin() + skipped, octets.begin() + skipped + known, segment.begin());
}

/// True when a repeated segment differs from the segment that was passed on last.
bool StreamReassembly::contradicts(const ArrivedSegment& segment) const {
  const auto differs = [&](const Sample& sample, std::uint32_t at) {
    const std::uint32_t offset = at - segment.sequence;
    if (offset < segment.octets.size()) return !sample.agreesWith(segment.octets.subspan(offset));
    const std::uint32_t skipped = segment.sequence - at;
    return skipped < sample.size && !sample.agreesWith(segment.octets, skipped);
  };
  return lastSize_ > 0 && (differs(lastFront_, last_) || differs(lastBack_, last_ + lastSize_ - lastBack_.size));
}

/// Returns the number of octets at the front of an expected segment that were passed on before. `old` of them are
/// before the expected octet. The others were passed on before the old numbers returned: when the segment begins like
/// them, the sender repeats them; otherwise they were forged.
std::size_t StreamReassembly::skipPassed(const ArrivedSegment& segment, std::size_t old, OctetReceiver& receiver) {
  const Passed passed = disorder_->passed;
  const Position at = next_ - static_cast<Position>(old);
  if (passed.to == 0 || at + static_cast<Position>(segment.octets.size()) <= passed.from) return old;
  disorder_->passed = {};
  if (passed.from < next_) return old;
  const auto front = static_cast<std::size_t>(passed.from - at);
  if (!passed.beginning.agreesWith(segment.octets.subspan(front))) return old;
  Early before;
  before.captured = segment.captured;
  deliver(segment.octets.first(front).subspan(old), before, receiver);
  skipTo(passed.to, receiver);
  return static_cast<std::size_t>(passed.to - at);
}

// ---- memory ----

StreamReassembly::Disorder& StreamReassembly::disorder() {
  if (disorder_ == nullptr) {
    disorder_ = std::make_unique<Disorder>();
    disorder_->runStart = next_ - (static_cast<std::uint32_t>(next_) - first_);
  }
  return *disorder_;
}

void StreamReassembly::tidy() {
  Disorder& kept = *disorder_;
  if (next_ - kept.markedAt > kWindow) kept.marks.clear();  // the present numbering has proved itself
  if (!kept.early.empty() || kept.rival != nullptr) return;
  if (kept.marks.empty() && kept.passed.to == 0 && kept.leftAt == kNever) disorder_.reset();
}

std::size_t StreamReassembly::memoryUsed() const {
  if (disorder_ == nullptr) return 0;
  const auto sizeOf = [](const std::unique_ptr<Candidate>& one) {
    return one == nullptr ? 0 : sizeof(Candidate) + one->memory;
  };
  std::size_t size = sizeof(Disorder) + disorder_->earlySize + sizeOf(disorder_->rival);
  for (const Mark& mark : disorder_->marks) size += sizeof(Mark) + sizeOf(mark.candidate);
  return size;
}

}  // namespace voip
