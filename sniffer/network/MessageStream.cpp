#include "network/MessageStream.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace voip {

namespace {

// A stream that only sometimes looks like TPKTs carries another protocol, such as remote desktop. So a failure counts
// as much as two messages.
constexpr std::uint8_t kFailure = 2;
constexpr std::uint8_t kMostFailures = 16 * kFailure;

constexpr std::size_t kLongestWithoutLine = 8'192;
constexpr std::size_t kLongestWithoutText = 128;  // a TPKT or a WebSocket frame is recognised before

/// Whether any message begins with this octet. Most octets do not begin a message, so this test is the first one.
constexpr auto kMayBegin = [] {
  std::array<bool, 256> may{};
  for (const unsigned char octet : std::string_view("\r\n\x01\x02\x03\x81\x82-.!%*_+`'~")) may[octet] = true;
  for (unsigned char octet = '0'; octet <= '9'; ++octet) may[octet] = true;
  for (unsigned char octet = 'a'; octet <= 'z'; ++octet) may[octet] = may[octet - 'a' + 'A'] = true;
  return may;
}();

/// True when only a line end can decide what the octets are, and no line end is after the first `known` of them. So a
/// long line that arrives octet by octet is not read again each time.
bool waitsForLine(Octets octets, std::size_t known) {
  return known > kLongestWithoutText && octets.size() <= kLongestWithoutLine &&
         textOf(octets).find('\n', known) == std::string_view::npos;
}

}  // namespace

void MessageStream::start(bool isFromStart) {
  *this = MessageStream();
  isFromStart_ = isFromStart;
}

std::size_t MessageStream::take(Octets octets, bool isFront, const Context& context) {
  if (isFront && isUnsure_ && isMessageAt(octets)) decideAgain();
  const std::size_t skipped = std::min<std::size_t>(skip_, octets.size());
  skip_ -= static_cast<std::uint32_t>(skipped);
  const Octets rest = octets.subspan(skipped);
  if (rest.empty() || kind_ == Kind::kForeign) return octets.size();
  const bool hasPartial = kept_ != nullptr && !kept_->partial.empty();
  const std::size_t taken = hasPartial ? takeAfterPartial(rest, context) : takeFresh(rest, isFront, context);
  tidy();
  return skipped + taken;
}

std::size_t MessageStream::takeFresh(Octets octets, bool isFront, const Context& context) {
  const End end = takeMessages(octets, 0, 0, isFront, context);
  if (end.isSpent) return end.at;
  if (end.at < octets.size()) {
    kept().partial.assign(octets.begin() + static_cast<std::ptrdiff_t>(end.at), octets.end());
  }
  return octets.size();
}

std::size_t MessageStream::takeAfterPartial(Octets octets, const Context& context) {
  // Moved out first, so that calls from the code below find the stream in a consistent state.
  std::vector<std::uint8_t> partial = std::move(kept_->partial);
  kept_->partial.clear();
  const std::size_t old = partial.size();
  partial.insert(partial.end(), octets.begin(), octets.end());
  End end{0, false};
  if (partial.size() >= wanted_) end = takeMessages(partial, old, wanted_ == 0 ? old : 0, true, context);
  if (end.isSpent) return end.at - old;
  partial.erase(partial.begin(), partial.begin() + static_cast<std::ptrdiff_t>(end.at));
  if (!partial.empty()) kept().partial = std::move(partial);
  return octets.size();
}

/// Passes on the whole messages. The first `old` octets arrived before; the first `known` ones did not complete a
/// message. The work may end among the others only.
MessageStream::End MessageStream::takeMessages(Octets octets, std::size_t old, std::size_t known, bool isFront,
                                               const Context& context) {
  std::size_t at = 0;
  wanted_ = 0;
  while (at < octets.size()) {
    if (context.work.isSpent() && at >= old) return {at, true};
    const Octets rest = octets.subspan(at);
    const Cut piece = cut(rest, at == 0 ? known : 0, isFront && at == 0 && known == 0, context);
    const auto here = static_cast<std::size_t>(std::min<std::uint64_t>(piece.length, rest.size()));
    context.work.spend(1 + here / Work::kOctetsOfUnit);
    switch (piece.kind) {
      case Cut::kMore:
        wanted_ = static_cast<std::uint32_t>(piece.length);
        return {at, false};
      case Cut::kTooLong:
        refuse(piece.length, context);
        [[fallthrough]];
      case Cut::kSkip:
        skip_ = static_cast<std::uint32_t>(piece.length - here);
        [[fallthrough]];
      case Cut::kMessage:
        at += here;
        break;
      case Cut::kLost:
        break;  // the stream is out of step now
    }
  }
  return {at, false};
}

Cut MessageStream::cut(Octets octets, std::size_t known, bool isFront, const Context& context) {
  if (kind_ == Kind::kUndecided) {
    if (const auto undecided = decide(octets, known)) return *undecided;
  }
  if (!isInStep_) {
    if (const auto lost = findStep(octets, known, isFront, context.work)) return *lost;
  }
  WebSocketFrame frame;
  const Cut piece = cutInStep(octets, known, frame);
  if (piece.kind == Cut::kLost) {
    context.sink.count(NetworkCount::kStreamsOutOfStep);
    loseStep();
  } else if (piece.kind == Cut::kMessage) {
    if (failures_ > 0) --failures_;
    isUnsure_ = false;
    const Octets message = octets.first(static_cast<std::size_t>(piece.length));
    if (kind_ == Kind::kWebSocket) {
      takeFrame(message, frame, context);
    } else {
      passOn(message, context);
    }
  }
  return piece;
}

Cut MessageStream::cutInStep(Octets octets, std::size_t known, WebSocketFrame& frame) {
  switch (kind_) {
    case Kind::kTpkt:
      return cutTpkt(octets);
    case Kind::kSip:
      return cutSip(octets, known);
    case Kind::kWebSocket:
      return cutWebSocket(octets, frame);
    case Kind::kHandshake: {
      const Cut handshake = cutHandshake(octets, known);
      if (handshake.kind == Cut::kMore) return handshake;
      const bool isSip = handshake.kind == Cut::kSkip;
      // In the middle of a stream a request may be forged, and a later segment may begin a message.
      kind_ = isSip ? Kind::kWebSocket : isFromStart_ ? Kind::kForeign : Kind::kUndecided;
      return {Cut::kSkip, isSip ? handshake.length : octets.size()};
    }
    default:
      return {Cut::kSkip, octets.size()};
  }
}

// ---- what the stream is ----

MessageStream::Kind MessageStream::kindOf(Octets octets, bool isFromStart) {
  const Likeness tpkt = beginsTpkt(octets);
  if (tpkt == Likeness::kYes) return Kind::kTpkt;
  const Likeness handshake = beginsHandshake(octets);
  if (handshake == Likeness::kYes) return Kind::kHandshake;
  const Likeness frame = beginsSipFrame(octets);
  if (frame == Likeness::kYes) return Kind::kWebSocket;
  // At the start of a connection a message must begin, so its start line is enough.
  const Likeness sip = isFromStart ? beginsSip(octets) : beginsSipMessage(octets);
  if (sip == Likeness::kYes) return Kind::kSip;
  const bool isForeign = tpkt == Likeness::kNo && handshake == Likeness::kNo && frame == Likeness::kNo;
  return isForeign && sip == Likeness::kNo ? Kind::kForeign : Kind::kUndecided;
}

bool MessageStream::mayBeginWith(Octets octets) {
  if (octets.empty() || !kMayBegin[octets[0]]) return false;
  octets = octets.subspan(countLineEnds(octets));
  return !octets.empty() && kindOf(octets, false) != Kind::kForeign;
}

/// True when a whole start of a message, with or without blank lines before it, is at the front of the octets.
bool MessageStream::isMessageAt(Octets octets) {
  const Kind kind = kindOf(octets.subspan(countLineEnds(octets)), false);
  return kind == Kind::kTpkt || kind == Kind::kSip || kind == Kind::kWebSocket;
}

/// Returns nothing when the kind of the stream is decided.
std::optional<Cut> MessageStream::decide(Octets octets, std::size_t known) {
  if (const std::size_t blank = countLineEnds(octets); blank > 0) return Cut{Cut::kSkip, blank};
  if (waitsForLine(octets, known)) return Cut{Cut::kMore};
  kind_ = kindOf(octets, isFromStart_);
  if (kind_ == Kind::kUndecided) return Cut{Cut::kMore};
  if (kind_ != Kind::kForeign) {
    isInStep_ = true;
    return {};
  }
  if (!isFromStart_) kind_ = Kind::kUndecided;  // a later segment may begin a message
  return Cut{Cut::kSkip, octets.size()};
}

// ---- losses ----

void MessageStream::lose(std::uint64_t count) {
  const std::size_t partial = kept_ == nullptr ? 0 : kept_->partial.size();
  const std::uint64_t known = wanted_ > partial ? wanted_ - partial : skip_;
  kept_.reset();
  wanted_ = skip_ = 0;
  isAssembling_ = false;
  isUnsure_ = true;
  if (kind_ == Kind::kUndecided || kind_ == Kind::kHandshake) {
    kind_ = Kind::kUndecided;
    isFromStart_ = false;
  } else if (count <= known) {
    skip_ = static_cast<std::uint32_t>(known - count);
  } else {
    isInStep_ = false;
  }
}

/// Forgets what the octets before a loss have shown. The failures remain: otherwise another protocol whose octets are
/// often lost would pass for TPKTs for ever.
void MessageStream::decideAgain() {
  const std::uint8_t failures = failures_;
  start(false);
  failures_ = failures;
}

void MessageStream::loseStep() {
  isInStep_ = false;
  if (kind_ != Kind::kTpkt) return;
  failures_ = static_cast<std::uint8_t>(std::min(failures_ + kFailure, 255));
  if (failures_ >= kMostFailures) kind_ = Kind::kForeign;
}

Found MessageStream::find(Octets octets, bool isFront) const {
  switch (kind_) {
    case Kind::kTpkt: {
      // A segment that begins with a TPKT may contain only a part of it.
      const Likeness front = isFront ? beginsTpkt(octets) : Likeness::kNo;
      return front == Likeness::kNo ? findTpkt(octets) : Found{0, front};
    }
    case Kind::kSip:
      return findSip(octets);
    case Kind::kWebSocket:
      return findSipFrame(octets);
    default:
      return {octets.size()};
  }
}

/// Returns nothing when the stream is in step: a message begins with the octets.
std::optional<Cut> MessageStream::findStep(Octets octets, std::size_t known, bool isFront, Work& work) {
  if (kind_ == Kind::kSip && waitsForLine(octets, known)) return Cut{Cut::kMore};
  const Found found = find(octets, isFront);
  work.spend(found.at);
  if (found.at == octets.size()) loseStep();
  if (found.at > 0) return Cut{Cut::kSkip, found.at};
  if (found.likeness == Likeness::kPerhaps) return Cut{Cut::kMore};
  isInStep_ = true;
  return {};
}

// ---- messages ----

void MessageStream::passOn(Octets message, const Context& context) {
  if (kind_ != Kind::kTpkt && message.size() > kMaxIpv6Message && !context.ends.areIpv4()) {
    refuse(message.size(), context);
    return;
  }
  context.sink.count(NetworkCount::kStreamMessages);
  if (kind_ == Kind::kTpkt) {
    context.work.spend(Work::kTpkt + context.sink.takeTpkt(context.ends, message, context.captured));
  } else {
    context.work.spend(Work::kSent);
    context.sink.takeSipMessage(context.ends, message, context.captured);
  }
}

void MessageStream::takeFrame(Octets octets, const WebSocketFrame& frame, const Context& context) {
  constexpr std::uint8_t kContinuation = 0;
  constexpr std::uint8_t kControl = 8;
  if (frame.opcode >= kControl) return;
  const bool isContinued = frame.opcode == kContinuation;
  if (isContinued && !isAssembling_) return;  // the beginning of the message is lost
  const bool isPart = isContinued || !frame.isLast;
  std::vector<std::uint8_t>& message = isPart ? kept().assembly : context.unmasked;
  if (!isContinued) message.clear();
  if (!isContinued && kept_ != nullptr) kept_->assembly.clear();
  isAssembling_ = !frame.isLast;
  const Octets payload = octets.subspan(frame.payloadAt);
  if (message.size() + payload.size() > kMaxMessage) {
    refuse(message.size() + payload.size(), context);
    message.clear();
    isAssembling_ = false;
    return;
  }
  for (std::size_t i = 0; i < payload.size(); ++i) message.push_back(frame.unmask(payload[i], i));
  if (!frame.isLast) return;
  if (!message.empty() && beginsSip(message) == Likeness::kYes) passOn(message, context);
  message.clear();
}

void MessageStream::refuse(std::uint64_t length, const Context& context) const {
  context.sink.count(NetworkCount::kStreamMessagesTooLong);
  context.sink.refuseMessage(context.ends, length);
}

// ---- memory ----

MessageStream::Kept& MessageStream::kept() {
  if (kept_ == nullptr) kept_ = std::make_unique<Kept>();
  return *kept_;
}

void MessageStream::tidy() {
  if (kept_ != nullptr && kept_->partial.empty() && kept_->assembly.empty()) kept_.reset();
}

std::size_t MessageStream::memoryUsed() const {
  return kept_ == nullptr ? 0 : sizeof(Kept) + kept_->partial.size() + kept_->assembly.size();
}

}  // namespace voip
