#include "network/MessageFraming.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "network/ByteReader.h"

namespace voip {

namespace {

constexpr std::size_t kTpktHeader = 4;
constexpr std::uint64_t kLongestBelieved = 16 << 20;  // a stream is not left for longer because of one length field
constexpr std::size_t kLongestHandshake = 16'384;
constexpr std::string_view kEmptyLine = "\r\n\r\n";

std::string_view text(Octets octets) {
  return {reinterpret_cast<const char*>(octets.data()), octets.size()};
}

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 'a' - 'A') : c;
}

bool equalNocase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return lower(x) == lower(y); });
}

Likeness beginsWith(std::string_view octets, std::string_view wanted) {
  const std::size_t length = std::min(octets.size(), wanted.size());
  if (octets.substr(0, length) != wanted.substr(0, length)) return Likeness::kNo;
  return length == wanted.size() ? Likeness::kYes : Likeness::kPerhaps;
}

std::string_view trimmed(std::string_view value) {
  while (!value.empty() && (value.front() == ' ' || value.front() == '\t')) value.remove_prefix(1);
  while (!value.empty() && (value.back() == ' ' || value.back() == '\t')) value.remove_suffix(1);
  return value;
}

/// The value of the first header field with one of the names; empty without.
std::string_view fieldOf(std::string_view header, std::string_view name, std::string_view shortName) {
  for (std::size_t at = header.find("\r\n"); at != header.npos && at + 2 < header.size();
       at = header.find("\r\n", at)) {
    at += 2;
    const std::string_view line = header.substr(at, header.find("\r\n", at) - at);
    const std::size_t colon = line.find(':');
    if (colon == line.npos) continue;
    const std::string_view field = trimmed(line.substr(0, colon));
    if (equalNocase(field, name) || equalNocase(field, shortName)) return trimmed(line.substr(colon + 1));
  }
  return {};
}

}  // namespace

// ---- TPKT ----

Likeness beginsTpkt(Octets octets) {
  ByteReader reader(octets);
  if (octets.empty()) return Likeness::kPerhaps;
  if (reader.u8() != 3 || reader.u8() != 0) return Likeness::kNo;
  const std::size_t length = reader.u16();
  if (!reader.ok()) return Likeness::kPerhaps;
  return length > kTpktHeader ? Likeness::kYes : Likeness::kNo;
}

Cut cutTpkt(Octets octets) {
  const Likeness likeness = beginsTpkt(octets);
  if (likeness == Likeness::kNo) return {Cut::kLost};
  if (likeness == Likeness::kPerhaps) return {Cut::kMore, kTpktHeader};
  const std::size_t length = octets[2] << 8 | octets[3];
  return {length > octets.size() ? Cut::kMore : Cut::kMessage, length};
}

std::size_t findTpkt(Octets octets) {
  for (std::size_t at = 0; at < octets.size(); ++at) {
    if (octets[at] != 3) continue;
    const Octets rest = octets.subspan(at);
    if (beginsTpkt(rest) != Likeness::kYes) continue;
    const std::size_t length = rest[2] << 8 | rest[3];
    if (length <= rest.size() && beginsTpkt(rest.subspan(length)) != Likeness::kNo) return at;
  }
  return octets.size();
}

// ---- SIP ----

Cut cutSip(Octets octets, std::size_t known) {
  const std::string_view stream = text(octets);
  if (const std::size_t blank = std::min(stream.find_first_not_of("\r\n"), stream.size()); blank > 0) {
    return {Cut::kSkip, blank};
  }
  if (beginsSip(octets) == Likeness::kNo) return {Cut::kLost};
  const std::size_t end = stream.find(kEmptyLine, known < kEmptyLine.size() ? 0 : known - kEmptyLine.size());
  if (end == stream.npos) {
    return octets.size() > kMaxMessage ? Cut{Cut::kTooLong, octets.size()} : Cut{Cut::kMore};
  }
  const std::size_t header = end + kEmptyLine.size();
  const std::string_view value = fieldOf(stream.substr(0, end), "Content-Length", "l");
  std::uint64_t body = 0;
  std::from_chars(value.data(), value.data() + value.size(), body);
  if (body > kLongestBelieved) body = 0;
  const std::uint64_t length = header + body;
  if (length > kMaxMessage) return {Cut::kTooLong, length};
  return {length > octets.size() ? Cut::kMore : Cut::kMessage, length};
}

std::size_t findSip(Octets octets) {
  const std::string_view stream = text(octets);
  for (std::size_t at = 0; at < stream.size();) {
    if (beginsSip(octets.subspan(at)) != Likeness::kNo) return at;
    const std::size_t end = stream.find('\n', at);
    if (end == stream.npos) break;
    at = end + 1;
  }
  return octets.size();
}

// ---- WebSocket ----

Likeness beginsWebSocket(Octets octets) {
  const Likeness request = beginsWith(text(octets), "GET /");
  return request != Likeness::kNo ? request : beginsWith(text(octets), "HTTP/1.1 101");
}

Cut cutHandshake(Octets octets) {
  const std::size_t end = text(octets).find(kEmptyLine);
  if (end == std::string_view::npos) {
    return octets.size() > kLongestHandshake ? Cut{Cut::kLost} : Cut{Cut::kMore};
  }
  std::string_view protocols = fieldOf(text(octets).substr(0, end), "Sec-WebSocket-Protocol", "Sec-WebSocket-Protocol");
  while (!protocols.empty()) {
    const std::size_t comma = std::min(protocols.find(','), protocols.size());
    if (equalNocase(trimmed(protocols.substr(0, comma)), "sip")) return {Cut::kSkip, end + kEmptyLine.size()};
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

}  // namespace voip
