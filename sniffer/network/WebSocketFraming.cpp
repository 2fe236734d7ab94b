#include "network/WebSocketFraming.h"

#include <algorithm>
#include <array>

#include "network/ByteReader.h"

namespace voip {

namespace {

constexpr std::size_t kLongestHandshake = 16'384;
constexpr std::size_t kTelling = 32;      // octets of a payload that are tested for SIP
constexpr std::size_t kShortestPart = 8;  // octets of the first frame of a divided message

Likeness beginsWith(std::string_view octets, std::string_view wanted) {
  const std::size_t length = std::min(octets.size(), wanted.size());
  if (octets.substr(0, length) != wanted.substr(0, length)) return Likeness::kNo;
  return length == wanted.size() ? Likeness::kYes : Likeness::kPerhaps;
}

bool mayBeginSipFrame(std::uint8_t first) {
  const int opcode = first & 0x7F;  // with the reserved bits, which must be 0
  return opcode == 1 || opcode == 2;
}

}  // namespace

Likeness beginsHandshake(Octets octets) {
  const Likeness request = beginsWith(textOf(octets), "GET /");
  return request != Likeness::kNo ? request : beginsWith(textOf(octets), "HTTP/1.1 101");
}

Cut cutHandshake(Octets octets, std::size_t known) {
  const std::string_view stream = textOf(octets);
  const std::size_t end = endOfHeader(stream, known);
  if (end == stream.npos) return octets.size() > kLongestHandshake ? Cut{Cut::kLost} : Cut{Cut::kMore};
  std::string_view protocols = fieldOf(stream.substr(0, end), "Sec-WebSocket-Protocol", "Sec-WebSocket-Protocol");
  while (!protocols.empty()) {
    const std::size_t comma = std::min(protocols.find(','), protocols.size());
    if (equalNocase(trimmed(protocols.substr(0, comma)), "sip")) return {Cut::kSkip, end};
    protocols.remove_prefix(std::min(comma + 1, protocols.size()));
  }
  return {Cut::kLost};
}

Cut cutWebSocket(Octets octets, WebSocketFrame& frame) {
  ByteReader reader(octets);
  const unsigned first = reader.u8();
  const unsigned second = reader.u8();
  std::uint64_t payload = second & 0x7F;
  if (payload == 126) {
    payload = reader.u16();
  } else if (payload == 127) {
    payload = std::uint64_t{reader.u32()} << 32 | reader.u32();
  }
  frame.isLast = (first & 0x80) != 0;
  frame.opcode = first & 0x0F;
  const bool isMasked = (second & 0x80) != 0;
  for (std::uint8_t& octet : frame.key) octet = isMasked ? reader.u8() : std::uint8_t{0};
  if (!reader.ok()) return {Cut::kMore};
  frame.payloadAt = reader.position();
  const std::uint64_t length = frame.payloadAt + payload;
  // Reserved bits: compressed, or out of step. Opcodes 3 to 7 and from 11 on are reserved as well.
  if ((first & 0x70) != 0 || (frame.opcode & 7) > 2 || payload > kLongestBelieved) return {Cut::kLost};
  if (payload > kMaxMessage) return {Cut::kTooLong, length};
  return {length > octets.size() ? Cut::kMore : Cut::kMessage, length};
}

Likeness beginsSipFrame(Octets octets) {
  if (octets.empty()) return Likeness::kPerhaps;
  if (!mayBeginSipFrame(octets[0])) return Likeness::kNo;
  WebSocketFrame frame;
  const Cut cut = cutWebSocket(octets, frame);
  if (cut.kind == Cut::kMore && cut.length == 0) return Likeness::kPerhaps;
  if (cut.kind != Cut::kMore && cut.kind != Cut::kMessage) return Likeness::kNo;

  const auto length = static_cast<std::size_t>(cut.length) - frame.payloadAt;
  const Octets payload = octets.subspan(frame.payloadAt);
  std::array<std::uint8_t, kTelling> front;
  const std::size_t size = std::min({front.size(), length, payload.size()});
  for (std::size_t i = 0; i < size; ++i) front[i] = frame.unmask(payload[i], i);
  const Likeness likeness = beginsSip(Octets(front).first(size));
  if (likeness != Likeness::kPerhaps) return likeness;
  if (size == front.size()) return Likeness::kYes;
  if (size < length) return Likeness::kPerhaps;
  return !frame.isLast && length >= kShortestPart ? Likeness::kYes : Likeness::kNo;
}

Found findSipFrame(Octets octets) {
  const std::size_t end = std::min(octets.size(), kSearchedAtOnce);
  for (std::size_t at = 0; at < end; ++at) {
    if (!mayBeginSipFrame(octets[at])) continue;
    const Likeness likeness = beginsSipFrame(octets.subspan(at));
    if (likeness != Likeness::kNo) return {at, likeness};
  }
  return {end};
}

}  // namespace voip
