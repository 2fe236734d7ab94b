#include "network/TcpStreams.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace voip {

namespace {

constexpr std::size_t kSizeFrom[] = {1, 4'096, 32'768};  // bytes of memory from which a stream is in the next list

std::uint32_t secondOf(std::int64_t now) {
  return static_cast<std::uint32_t>(now / 1'000'000);
}

}  // namespace

/// What one call may do: early segments that it passes on, and the work for messages.
struct TcpStreams::Budget {
  explicit Budget(const NetworkLimits& limits) : work(limits.work) {}

  std::size_t segments = 32;
  Work work;

  bool isSpent() const { return segments == 0 || work.isSpent(); }
};

/// Passes the octets of a stream to its MessageStream, or to its backlog when the work is spent.
class TcpStreams::Delivery final : public OctetReceiver {
 public:
  Delivery(TcpStreams& streams, Stream& stream, Work& work, std::int64_t now)
      : streams_(streams), ends_(streams.streams_.keyOf(stream)), stream_(stream), work_(work), now_(now) {}

 private:
  void takeOctets(Octets octets, std::int64_t captured, std::vector<std::uint8_t>* memory) override {
    std::size_t used = 0;
    if (stream_.backlog == nullptr && !work_.isSpent()) {
      used = stream_.messages.take(octets, true, {streams_.sink_, ends_, captured, streams_.unmasked_, work_});
    }
    if (used == octets.size()) return;
    backlog().add(octets.subspan(used), memory, used == 0, captured, now_);
    streams_.countLost(backlog().limit(streams_.limits_.backlogMemory));
  }

  void loseOctets(std::uint64_t count) override {
    streams_.sink_.count(NetworkCount::kStreamGaps);
    stream_.backlog == nullptr ? stream_.messages.lose(count) : stream_.backlog->lose(count);
  }

  void restart(bool isFromStart) override {
    if (!isFromStart) streams_.sink_.count(NetworkCount::kStreamGaps);
    // The SYN may be forged, so what follows does not decide for the whole stream.
    stream_.backlog == nullptr ? stream_.messages.start(false) : stream_.backlog->restart(false);
  }

  Backlog& backlog() {
    if (stream_.backlog == nullptr) stream_.backlog = std::make_unique<Backlog>();
    return *stream_.backlog;
  }

  TcpStreams& streams_;
  const FlowEnds& ends_;
  Stream& stream_;
  Work& work_;
  const std::int64_t now_;
};

TcpStreams::TcpStreams(NetworkSink& sink, const NetworkLimits& limits)
    : sink_(sink), limits_(limits), streams_(limits.streams) {}

std::uint64_t TcpStreams::hashOf(const FlowEnds& ends) const {
  const std::uint32_t ports = ends.sourcePort | std::uint32_t{ends.destinationPort} << 16;
  if (ends.areIpv4()) {
    const std::uint32_t numbers[] = {ends.source.ipv4(), ends.destination.ipv4(), ports};
    std::uint8_t octets[sizeof numbers];
    std::memcpy(octets, numbers, sizeof numbers);
    return hash_(octets);
  }
  std::uint8_t octets[2 * IpAddress::kSize + sizeof ports];
  ends.source.write(octets);
  ends.destination.write(octets + IpAddress::kSize);
  std::memcpy(octets + 2 * IpAddress::kSize, &ports, sizeof ports);
  return hash_(octets);
}

// ---- segments ----

bool TcpStreams::follow(const FlowEnds& ends, const TcpSegment& segment, std::int64_t captured, std::int64_t now) {
  if (!waiting_.empty()) {
    if (segment.hasAcknowledged) acknowledge(ends, segment, now);
    expire(now);
  }
  const bool isControl = segment.isSyn || segment.isFin || segment.isReset;
  if (segment.isBare() && !isControl) return false;

  const std::uint64_t hashed = hashOf(ends);
  Stream* stream = streams_.find(ends, hashed);
  if (segment.isBare() || segment.isReset) {
    takeControl(stream, ends, hashed, segment, now);
    return false;
  }
  if (segment.isSyn && !isProtected(stream)) {
    takeSyn(stream, ends, hashed, segment.sequence + 1, now);
    stream = streams_.find(ends, hashed);
  }
  const std::uint32_t sequence = segment.sequence + (segment.isSyn ? 1 : 0);
  const bool isIgnored = stream != nullptr && isForeign(*stream);
  if (isIgnored && stream->order.track(sequence, segment.payload.size() + segment.missing)) {
    takeForeign(*stream, segment, now);
    return false;
  }
  // The SYN of another connection was not captured.
  if (isProtected(stream) && !stream->order.isPlausible(sequence) && MessageStream::mayBeginWith(segment.payload) &&
      hasEnded(*stream, now)) {
    beginAnother(*stream, sequence, false);
  }
  // No segment has used the numbers of the SYN yet, so they need no protection.
  if (stream != nullptr && !isIgnored && !hasPayload(*stream) && !stream->order.isAhead(sequence)) {
    forget(*stream);
    stream = nullptr;
  }
  if (stream == nullptr || isIgnored) {
    if (!MessageStream::mayBeginWith(segment.payload)) return false;
    if (isIgnored) forget(*stream);
    stream = &newStream(ends, hashed);
    stream->order.start(sequence, false);
  }
  if (segment.missing > 0) {
    sink_.count(NetworkCount::kSegmentsCut);
    sink_.refuseTail(ends, segment.missing);
  }
  return takePayload(*stream, {sequence, segment.payload, segment.missing, segment.isFin, captured, now});
}

void TcpStreams::takeForeign(Stream& stream, const TcpSegment& segment, std::int64_t now) {
  if (segment.isFin) {
    forget(stream);
  } else if (secondOf(now) != stream.touched) {
    enlist(stream, kExpendable, now);
  }
}

bool TcpStreams::takePayload(Stream& stream, const ArrivedSegment& segment) {
  Budget budget(limits_);
  Delivery delivery(*this, stream, budget.work, segment.now);
  if (stream.order.take(segment, delivery) == StreamReassembly::Placement::kRepeated) {
    sink_.count(NetworkCount::kSegmentsRetransmitted);
  }
  const bool isInLine = stream.backlog != nullptr && stream.turn != waiting_.end();
  while (!isInLine && !budget.isSpent() && release(stream, segment.now, budget)) {
  }
  const bool isFollowed = settle(stream, segment.now, segment.now);
  if (isInLine) releaseDue(segment.now, budget);
  return isFollowed;
}

/// Takes SYN, FIN and RST. A RST with an unexpected number counts as forged: a receiver would ask the sender about it
/// (RFC 5961), which an observer cannot do. When that RST was real, no segment follows, and the idle stream is removed
/// later to make space.
void TcpStreams::takeControl(Stream* stream, const FlowEnds& ends, std::uint64_t hashed, const TcpSegment& segment,
                             std::int64_t now) {
  if (segment.isSyn) {
    takeSyn(stream, ends, hashed, segment.sequence + 1, now);
  } else if (stream != nullptr && isForeign(*stream)) {
    forget(*stream);  // its numbers are not followed
  } else if (stream != nullptr) {
    stream->order.takeEnd(segment.sequence);
    if (stream->order.hasEnded() && stream->backlog == nullptr) forget(*stream);
  }
}

void TcpStreams::takeSyn(Stream* stream, const FlowEnds& ends, std::uint64_t hashed, std::uint32_t first,
                         std::int64_t now) {
  if (isProtected(stream)) {
    hasEnded(*stream, now) ? beginAnother(*stream, first, true) : stream->order.takeSyn(first);
    account(*stream, std::int64_t{stream->touched} * 1'000'000);
    schedule(*stream, now);
    return;
  }
  if (stream == nullptr) {
    if (streams_.sizeOf(kOpening) >= limits_.openings) forget(*streams_.oldest(kOpening));
    stream = &newStream(ends, hashed);
  }
  stream->order.start(first, true);
  stream->messages.start(true);
  streams_.move(*stream, kOpening);
}

/// True when the connection has ended. Its last octets may be in the backlog.
bool TcpStreams::hasEnded(Stream& stream, std::int64_t now) {
  if (stream.order.knowsEnd()) {
    Work none(0);
    Delivery toBacklog(*this, stream, none, now);
    while (stream.order.release(now, limits_, toBacklog)) {
    }
  }
  return stream.order.hasEnded();
}

/// Begins another connection after one that has ended.
void TcpStreams::beginAnother(Stream& stream, std::uint32_t sequence, bool isFromStart) {
  stream.order.start(sequence, isFromStart);
  stream.backlog == nullptr ? stream.messages.start(isFromStart) : stream.backlog->restart(isFromStart);
}

TcpStreams::Stream& TcpStreams::newStream(const FlowEnds& ends, std::uint64_t hashed) {
  if (streams_.isFull()) makePlace();
  Stream& stream = streams_.insert(ends, hashed, kOpening);
  stream.turn = waiting_.end();
  return stream;
}

/// Takes the acknowledgement in a segment, unless the sequence number of the segment shows that it is forged.
void TcpStreams::acknowledge(const FlowEnds& ends, const TcpSegment& segment, std::int64_t now) {
  const FlowEnds reversed = ends.reversed();
  Stream* stream = streams_.find(reversed, hashOf(reversed));
  if (stream == nullptr || stream->turn == waiting_.end()) return;
  const Stream* own = streams_.find(ends, hashOf(ends));
  if (own != nullptr && !isForeign(*own) && !own->order.isPlausible(segment.sequence)) return;
  stream->order.acknowledge(segment.acknowledged);
  schedule(*stream, now);
}

// ---- what earlier calls have left ----

/// Passes on the backlog of a stream, or else an early segment. Returns false when there is nothing to do now.
bool TcpStreams::release(Stream& stream, std::int64_t now, Budget& budget) {
  if (stream.backlog != nullptr) {
    passBacklog(stream, budget.work);
    return true;
  }
  Delivery delivery(*this, stream, budget.work, now);
  if (!stream.order.release(now, limits_, delivery)) return false;
  --budget.segments;
  return true;
}

void TcpStreams::passBacklog(Stream& stream, Work& work) {
  Backlog& backlog = *stream.backlog;
  while (!backlog.empty() && !work.isSpent()) {
    Backlog::Piece& piece = backlog.front();
    if (std::exchange(piece.isRestart, false)) stream.messages.start(piece.isFromStart);
    if (piece.lost > 0) stream.messages.lose(std::exchange(piece.lost, 0));
    const MessageStream::Context context{sink_, streams_.keyOf(stream), piece.captured, unmasked_, work};
    const std::size_t used = piece.octets().empty() ? 0 : stream.messages.take(piece.octets(), piece.isWhole, context);
    piece.used += used;
    piece.isWhole = piece.isWhole && used == 0;
    if (piece.octets().empty()) backlog.pop();
    work.spend(1);
  }
  if (backlog.empty()) stream.backlog.reset();
}

void TcpStreams::releaseDue(std::int64_t now, Budget& budget) {
  while (!budget.isSpent() && !waiting_.empty() && waiting_.begin()->first <= now) {
    Stream& stream = *waiting_.begin()->second;
    --budget.segments;  // for the stream itself
    while (!budget.isSpent() && release(stream, now, budget)) {
    }
    unschedule(stream);
    settle(stream, std::int64_t{stream.touched} * 1'000'000, now);
  }
}

bool TcpStreams::expire(std::int64_t now) {
  Budget budget(limits_);
  releaseDue(now, budget);
  return !waiting_.empty() && waiting_.begin()->first <= now;
}

bool TcpStreams::flush() {
  constexpr std::int64_t kEnd = StreamReassembly::kNever - 1;
  if (!waiting_.empty()) {
    expire(kEnd);
    return true;
  }
  for (std::size_t list = 0; list < kLists; ++list) {
    while (Stream* stream = streams_.oldest(list)) {
      Work work(limits_.work);
      Delivery delivery(*this, *stream, work, kEnd);
      stream->order.releaseUnconfirmed(delivery);
      while (stream->backlog != nullptr) {
        work = Work(limits_.work);
        passBacklog(*stream, work);
      }
      forget(*stream);
    }
  }
  return false;
}

/// Schedules a stream for the time when its early segments are due. A stream with a backlog is due now, and gets its
/// turn after all others that are due. A later time does not replace an earlier one, because each segment in order
/// defers it again.
void TcpStreams::schedule(Stream& stream, std::int64_t now) {
  const std::int64_t due = stream.backlog != nullptr ? now : stream.order.due(limits_);
  if (due == StreamReassembly::kNever) return;
  const std::int64_t time = std::max(due, now);
  if (stream.turn != waiting_.end() && time >= stream.turn->first) return;
  unschedule(stream);
  stream.turn = waiting_.emplace(time, &stream);
}

void TcpStreams::unschedule(Stream& stream) {
  if (stream.turn != waiting_.end()) waiting_.erase(stream.turn);
  stream.turn = waiting_.end();
}

// ---- the table ----

/// True when one segment with other numbers must not change the stream.
bool TcpStreams::isProtected(const Stream* stream) const {
  return stream != nullptr && hasPayload(*stream) && !isForeign(*stream);
}

/// True when the stream carries another protocol. With a mark, the octets that showed this may be forged.
bool TcpStreams::isForeign(const Stream& stream) {
  return stream.messages.kind() == MessageStream::Kind::kForeign && !stream.order.hasMarks() &&
         stream.backlog == nullptr;
}

bool TcpStreams::isExpendable(const Stream& stream) {
  const MessageStream::Kind kind = stream.messages.kind();
  return kind == MessageStream::Kind::kForeign || kind == MessageStream::Kind::kUndecided;
}

/// Updates the table after a stream has taken octets. Returns false when the stream is not followed. May remove the
/// stream.
bool TcpStreams::settle(Stream& stream, std::int64_t touched, std::int64_t now) {
  const bool isFollowed = stream.messages.kind() != MessageStream::Kind::kForeign;
  account(stream, touched);
  if (stream.memory == 0 && stream.messages.isBlank()) {
    forget(stream);  // it began like a message but is none
    return false;
  }
  if (stream.order.hasEnded() && stream.backlog == nullptr) {
    forget(stream);
    return isFollowed;
  }
  schedule(stream, now);
  if (memory_ > limits_.streamMemory) makeRoom();
  return isFollowed;
}

void TcpStreams::account(Stream& stream, std::int64_t now) {
  const std::size_t backlog = stream.backlog == nullptr ? 0 : stream.backlog->memoryUsed();
  const auto memory = static_cast<std::uint32_t>(stream.order.memoryUsed() + stream.messages.memoryUsed() + backlog);
  if (memory < stream.memory) noteFreed(stream.memory - memory);
  memory_ += memory;
  memory_ -= stream.memory;
  if (!backlogs_.empty()) backlogs_.erase({stream.memory, &stream});
  stream.memory = memory;
  if (stream.backlog != nullptr) backlogs_.emplace(memory, &stream);
  enlist(stream, listFor(stream), now);
}

void TcpStreams::enlist(Stream& stream, std::size_t list, std::int64_t now) {
  // One second is precise enough for the order of idle streams.
  const std::uint32_t second = secondOf(now);
  if (second == stream.touched && list == streams_.listOf(stream)) return;
  stream.touched = second;
  streams_.move(stream, list);
}

std::size_t TcpStreams::listFor(const Stream& stream) const {
  std::size_t size = 0;
  while (size < std::size(kSizeFrom) && stream.memory >= kSizeFrom[size]) ++size;
  return (isExpendable(stream) ? kExpendable : kSignalling) + size;
}

void TcpStreams::forget(Stream& stream) {
  unschedule(stream);
  if (!backlogs_.empty()) backlogs_.erase({stream.memory, &stream});
  const std::size_t memory = stream.memory;
  memory_ -= memory;
  streams_.erase(stream);
  noteFreed(memory);
}

/// Notes that memory of a stream was freed, as counted.
void TcpStreams::noteFreed(std::size_t size) {
  constexpr std::size_t kSmallest = 128;  // what a block counts at least, with its overhead
  freed_.add(1 + size / kSmallest);
}

void TcpStreams::countLost(std::size_t segments) {
  for (; segments > 0; --segments) sink_.count(NetworkCount::kStreamGaps);
}

void TcpStreams::displace(Stream& stream) {
  if (hasPayload(stream)) sink_.count(NetworkCount::kStreamsDisplaced);
  countLost(stream.order.earlyCount() + (stream.backlog == nullptr ? 0 : stream.backlog->size()));
  forget(stream);
}

void TcpStreams::makePlace() {
  for (std::size_t list = 0; list < kLists; ++list) {
    if (Stream* oldest = streams_.oldest(list)) {
      displace(*oldest);
      return;
    }
  }
}

/// Drops the oldest octets of the largest backlog that has any. Returns false when none has.
bool TcpStreams::shortenBacklog() {
  const std::size_t excess = memory_ - limits_.streamMemory;
  for (auto largest = backlogs_.rbegin(); largest != backlogs_.rend(); ++largest) {
    Stream& stream = *largest->second;
    const std::size_t used = stream.backlog->memoryUsed();
    const std::size_t dropped = stream.backlog->limit(used - std::min(used, excess));
    if (dropped == 0) continue;
    countLost(dropped);
    account(stream, std::int64_t{stream.touched} * 1'000'000);
    return true;
  }
  return false;
}

void TcpStreams::makeRoom() {
  while (memory_ > limits_.streamMemory && shortenBacklog()) {
  }
  for (std::size_t size = kSizes - 1; size > 0; --size) {
    for (const std::size_t lists : {kExpendable, kSignalling}) {
      while (memory_ > limits_.streamMemory && streams_.oldest(lists + size) != nullptr) {
        displace(*streams_.oldest(lists + size));
      }
    }
  }
}

}  // namespace voip
