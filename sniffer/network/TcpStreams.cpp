#include "network/TcpStreams.h"



#include <algorithm>
#include <cstring>

namespace voip {

namespace {

constexpr std::int32_t kWindow = 1 << 20;        // numbers further away belong to another connection
constexpr std::size_t kOverhead = 64;            // of a piece that came early, in memory
constexpr std::size_t kMaxGaps = 65'536;         // remembered
constexpr std::int64_t kTouchEvery = 1'000'000;  // microseconds; the order of idle streams need not be finer

std::int32_t distance(std::uint32_t from, std::uint32_t to) {
  return static_cast<std::int32_t>(to - from);
}

}  // namespace

std::uint64_t TcpStreams::hashOf(const FlowEnds& ends) const {
  std::uint8_t octets[12];
  static_assert(sizeof ends == sizeof octets);
  std::memcpy(octets, &ends, sizeof octets);
  return hash(octets);
}

// ---- segments ----

bool TcpStreams::follow(const FlowEnds& ends, const TcpSegment& segment, std::int64_t time) {
  closeOldGaps(time);
  const bool bare = segment.payload.empty();
  if (bare && !segment.isSyn && !segment.isReset) return false;
  const std::uint64_t hashed = hashOf(ends);
  Stream* stream = streams.find(ends, hashed);
  if (segment.isReset) {
    if (stream != nullptr) forget(*stream);
    return false;
  }
  if (segment.isSyn) {
    begin(stream, ends, hashed, segment);
    if (bare) return false;
    stream = streams.find(ends, hashed);
  }
  if (stream == nullptr) {
    if (decide(segment.payload) == Kind::kNeither) return false;
    stream = &newStream(ends, hashed);
    stream->next = segment.sequence;
  }
  if (time - stream->touched > kTouchEvery) {
    stream->touched = time;
    streams.touch(*stream);
  }
  if (stream->kind == Kind::kNeither) return false;
  place(*stream, segment.sequence + (segment.isSyn ? 1 : 0), segment.payload, time);
  if (stream->kind == Kind::kUndecided && !stream->fromStart && !stream->kept) {
    streams.erase(*stream);  // it began like a message and is none
    return false;
  }
  if (memory > kMaxMemory) {
    streams.touch(*stream);
    makeRoom();
  }
  return stream->kind != Kind::kNeither;
}

void TcpStreams::begin(Stream* stream, const FlowEnds& ends, std::uint64_t hashed, const TcpSegment& segment) {
  const std::uint32_t first = segment.sequence + 1;
  if (stream == nullptr) {
    stream = &newStream(ends, hashed);
  } else if (stream->fromStart && stream->first == first) {
    return;  // the same SYN again
  }
  restart(*stream, first);
  stream->first = first;
  stream->fromStart = true;
}

TcpStreams::Stream& TcpStreams::newStream(const FlowEnds& ends, std::uint64_t hashed) {
  if (streams.full()) {
    sink.count(NetworkCount::kStreamsDisplaced);
    forget(*streams.oldestValue());
  }
  return streams.insert(ends, hashed);
}

void TcpStreams::restart(Stream& stream, std::uint32_t sequence) {
  if (stream.kept) memory -= stream.kept->size;
  stream.kept.reset();
  stream.gapSince = 0;
  stream.skip = stream.wanted = 0;
  stream.next = sequence;
  stream.kind = Kind::kUndecided;
  stream.fromStart = false;
}

void TcpStreams::place(Stream& stream, std::uint32_t sequence, Octets octets, std::int64_t time) {
  std::int32_t ahead = distance(stream.next, sequence);
  if (ahead > kWindow || ahead < -kWindow) {
    sink.count(NetworkCount::kStreamGaps);
    restart(stream, sequence);
    ahead = 0;
  }
  if (ahead > 0) {
    keepEarly(stream, sequence, octets, time);
    return;
  }
  const auto old = static_cast<std::size_t>(-ahead);
  if (old >= octets.size()) {
    sink.count(NetworkCount::kSegmentsRetransmitted);
    return;
  }
  deliver(stream, octets.subspan(old));
  if (stream.gapSince != 0) useEarly(stream);
}

void TcpStreams::keepEarly(Stream& stream, std::uint32_t sequence, Octets octets, std::int64_t time) {
  std::vector<Early>& early = keptOf(stream).early;
  const auto at = std::lower_bound(early.begin(), early.end(), sequence, [](const Early& one, std::uint32_t number) {
    return distance(one.sequence, number) > 0;
  });
  if (at != early.end() && at->sequence == sequence && at->octets.size() >= octets.size()) {
    sink.count(NetworkCount::kSegmentsRetransmitted);
    return;
  }
  early.insert(at, {sequence, {octets.begin(), octets.end()}});
  stream.kept->earlySize += octets.size() + kOverhead;
  account(stream);
  if (stream.gapSince == 0) {
    stream.gapSince = std::max<std::int64_t>(time, 1);
    gaps.push_back({stream.gapSince, streams.keyOf(stream)});
  }
  while (stream.gapSince != 0 && stream.kept->size > kMaxStreamMemory) closeGap(stream);
}

/// Delivers what came early, as far as it now fits on.
void TcpStreams::useEarly(Stream& stream) {
  std::vector<Early> early = std::move(stream.kept->early);
  stream.kept->early.clear();
  auto at = early.begin();
  for (; at != early.end(); ++at) {
    const std::int32_t ahead = distance(stream.next, at->sequence);
    if (ahead > 0) break;
    const auto old = static_cast<std::size_t>(-ahead);
    if (old < at->octets.size()) deliver(stream, Octets(at->octets).subspan(old));
    stream.kept->earlySize -= at->octets.size() + kOverhead;
  }
  early.erase(early.begin(), at);
  if (early.empty()) stream.gapSince = 0;
  stream.kept->early = std::move(early);
  account(stream);
}

/// What is missing will not come: goes on behind it.
void TcpStreams::closeGap(Stream& stream) {
  sink.count(NetworkCount::kStreamGaps);
  const std::uint32_t next = stream.kept->early.front().sequence;
  const auto missing = static_cast<std::uint64_t>(distance(stream.next, next));
  stream.skip -= std::min(stream.skip, missing);
  stream.next = next;
  stream.wanted = 0;
  stream.kept->partial.clear();
  stream.kept->assembly.clear();
  if (stream.kind == Kind::kUndecided) stream.fromStart = false;
  useEarly(stream);
}

void TcpStreams::closeOldGaps(std::int64_t time) {
  while (!gaps.empty() && (time - gaps.front().since > kPatience || gaps.size() > kMaxGaps)) {
    const Gap gap = gaps.front();
    gaps.pop_front();
    Stream* stream = streams.find(gap.ends, hashOf(gap.ends));
    if (stream == nullptr || stream->gapSince != gap.since) continue;
    while (stream->gapSince != 0) closeGap(*stream);
  }
}

// ---- messages ----

/// Octets that follow those delivered before.
void TcpStreams::deliver(Stream& stream, Octets octets) {
  stream.next += static_cast<std::uint32_t>(octets.size());
  const auto skipped = static_cast<std::size_t>(std::min<std::uint64_t>(stream.skip, octets.size()));
  stream.skip -= skipped;
  octets = octets.subspan(skipped);
  if (octets.empty() || stream.kind == Kind::kNeither) return;
  if (!stream.kept || stream.kept->partial.empty()) {
    const std::size_t used = takeMessages(stream, octets, 0);
    if (used < octets.size()) {
      keptOf(stream).partial.assign(octets.begin() + static_cast<std::ptrdiff_t>(used), octets.end());
    }
  } else {
    // Moved out, so that what is done on the way finds the stream in order.
    std::vector<std::uint8_t> partial = std::move(stream.kept->partial);
    stream.kept->partial.clear();
    const std::size_t known = stream.wanted == 0 ? partial.size() : 0;
    partial.insert(partial.end(), octets.begin(), octets.end());
    const std::size_t used = partial.size() < stream.wanted ? 0 : takeMessages(stream, partial, known);
    partial.erase(partial.begin(), partial.begin() + static_cast<std::ptrdiff_t>(used));
    if (stream.kept) stream.kept->partial = std::move(partial);
  }
  if (stream.kept) account(stream);
}

/// Hands on what is whole; answers how many octets are done with. `known` of them were not enough before.
std::size_t TcpStreams::takeMessages(Stream& stream, Octets octets, std::size_t known) {
  std::size_t at = 0;
  stream.wanted = 0;
  while (at < octets.size()) {
    const Octets rest = octets.subspan(at);
    const Cut piece = cut(stream, rest, at == 0 ? known : 0);
    switch (piece.kind) {
      case Cut::kMore:
        stream.wanted = static_cast<std::uint32_t>(piece.length);
        return at;
      case Cut::kMessage:
        handOn(stream, rest.first(static_cast<std::size_t>(piece.length)));
        at += static_cast<std::size_t>(piece.length);
        break;
      case Cut::kTooLong:
        refuse(stream, piece.length);
        [[fallthrough]];
      case Cut::kSkip: {
        const auto here = static_cast<std::size_t>(std::min<std::uint64_t>(piece.length, rest.size()));
        stream.skip = piece.length - here;
        at += here;
        break;
      }
      case Cut::kLost:
        at += findNext(stream, rest);
    }
  }
  return at;
}

Cut TcpStreams::cut(Stream& stream, Octets octets, std::size_t known) {
  if (stream.kind == Kind::kUndecided) {
    const std::size_t blank = std::min(octets.size(), std::size_t{4});
    std::size_t begin = 0;
    while (begin < blank && (octets[begin] == '\r' || octets[begin] == '\n')) ++begin;
    if (begin > 0) return {Cut::kSkip, begin};
    stream.kind = decide(octets);
    if (stream.kind == Kind::kUndecided) return {Cut::kMore};
    // A stream that was not seen from its start may come to a message yet.
    if (stream.kind == Kind::kNeither && !stream.fromStart) stream.kind = Kind::kUndecided;
    if (stream.kind == Kind::kNeither || stream.kind == Kind::kUndecided) return {Cut::kSkip, octets.size()};
  }
  switch (stream.kind) {
    case Kind::kTpkt:
      return cutTpkt(octets);
    case Kind::kSip:
      return cutSip(octets, known);
    case Kind::kHandshake: {
      const Cut handshake = cutHandshake(octets);
      if (handshake.kind == Cut::kMore) return handshake;
      stream.kind = handshake.kind == Cut::kSkip ? Kind::kWebSocket : Kind::kNeither;
      return {Cut::kSkip, handshake.kind == Cut::kSkip ? handshake.length : octets.size()};
    }
    case Kind::kWebSocket:
      return cutWebSocket(octets, frame);
    default:
      return {Cut::kSkip, octets.size()};
  }
}

/// What a stream is whose message begins with these octets. Undecided: it takes more of them.
TcpStreams::Kind TcpStreams::decide(Octets octets) const {
  const Likeness tpkt = beginsTpkt(octets);
  if (tpkt == Likeness::kYes) return Kind::kTpkt;
  if (tpkt == Likeness::kPerhaps) return Kind::kUndecided;
  const Likeness webSocket = beginsWebSocket(octets);
  if (webSocket == Likeness::kYes) return Kind::kHandshake;
  const Likeness sip = beginsSip(octets);
  if (sip == Likeness::kYes) return Kind::kSip;
  return sip == Likeness::kPerhaps || webSocket == Likeness::kPerhaps ? Kind::kUndecided : Kind::kNeither;
}

std::size_t TcpStreams::findNext(const Stream& stream, Octets octets) {
  sink.count(NetworkCount::kStreamsOutOfStep);
  // Not where the octets begin: there it was looked already.
  if (stream.kind == Kind::kTpkt) return 1 + findTpkt(octets.subspan(1));
  if (stream.kind == Kind::kSip) return 1 + findSip(octets.subspan(1));
  return octets.size();
}

void TcpStreams::handOn(Stream& stream, Octets message) {
  if (stream.kind == Kind::kWebSocket) {
    takeWebSocketFrame(stream, message);
    return;
  }
  sink.count(NetworkCount::kStreamMessages);
  const FlowEnds& ends = streams.keyOf(stream);
  if (stream.kind == Kind::kSip) {
    sink.takeSipMessage(ends, message);
  } else {
    sink.takeTpkt(ends, message);
  }
}

void TcpStreams::takeWebSocketFrame(Stream& stream, Octets octets) {
  constexpr std::uint8_t kContinuation = 0;
  constexpr std::uint8_t kControl = 8;
  if (frame.opcode >= kControl) return;
  const Octets payload = octets.subspan(frame.payloadAt);
  const bool isPart = !frame.isLast || frame.opcode == kContinuation;
  std::vector<std::uint8_t>& message = isPart ? keptOf(stream).assembly : unmasked;
  if (frame.opcode != kContinuation) message.clear();
  if (message.size() + payload.size() > kMaxMessage) {
    refuse(stream, message.size() + payload.size());
    message.clear();
    return;
  }
  for (std::size_t i = 0; i < payload.size(); ++i) message.push_back(payload[i] ^ frame.key[i % 4]);
  if (!frame.isLast) return;
  if (beginsSip(message) == Likeness::kYes) {
    sink.count(NetworkCount::kStreamMessages);
    sink.takeSipMessage(streams.keyOf(stream), message);
  }
  message.clear();
}

void TcpStreams::refuse(const Stream& stream, std::uint64_t length) {
  sink.count(NetworkCount::kStreamMessagesTooLong);
  sink.refuseMessage(streams.keyOf(stream), length);
}

// ---- memory ----

TcpStreams::Kept& TcpStreams::keptOf(Stream& stream) {
  if (!stream.kept) stream.kept = std::make_unique<Kept>();
  return *stream.kept;
}

/// Counts anew what the stream keeps, and gives it back when that is nothing.
void TcpStreams::account(Stream& stream) {
  Kept& kept = *stream.kept;
  const std::size_t size = kept.partial.size() + kept.assembly.size() + kept.earlySize;
  memory += size - kept.size;
  kept.size = size;
  if (size == 0) stream.kept.reset();
}

void TcpStreams::forget(Stream& stream) {
  if (stream.kept) memory -= stream.kept->size;
  streams.erase(stream);
}

void TcpStreams::makeRoom() {
  while (memory > kMaxMemory) {
    sink.count(NetworkCount::kStreamsDisplaced);
    forget(*streams.oldestValue());
  }
}

}  // namespace voip
