#include "network/MessageFraming.h"

#include <algorithm>
#include <charconv>

#include "network/ByteReader.h"

namespace voip {

namespace {

constexpr std::size_t kTpktHeader = 4;
constexpr std::size_t kLongestFieldName = 64;
constexpr std::size_t kLongestStartLine = 8'192;

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 'a' - 'A') : c;
}

std::size_t lengthOfTpkt(Octets octets) {
  return static_cast<std::size_t>(octets[2] << 8 | octets[3]);
}

/// A name, blanks, and a colon.
Likeness beginsField(std::string_view text) {
  const auto name =
      static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isSipTokenCharacter) - text.begin());
  if (name > kLongestFieldName) return Likeness::kNo;
  const std::size_t colon = text.find_first_not_of(" \t", name);
  if (colon == text.npos) return text.size() > 2 * kLongestFieldName ? Likeness::kNo : Likeness::kPerhaps;
  return name > 0 && text[colon] == ':' ? Likeness::kYes : Likeness::kNo;
}

/// Removes the first header field, with its continuation lines, and returns it.
std::string_view takeField(std::string_view& header) {
  std::size_t end = header.find('\n');
  while (end < header.size() - 1 && (header[end + 1] == ' ' || header[end + 1] == '\t'))
    end = header.find('\n', end + 1);
  const std::string_view field = header.substr(0, end);
  header.remove_prefix(std::min(field.size() + 1, header.size()));
  return field;
}

/// Returns where the value of a header field begins; 0 when the field has another name.
std::size_t valueOf(std::string_view field, std::string_view name) {
  if (field.size() <= name.size() || lower(field.front()) != lower(name.front()) ||
      !equalNocase(field.substr(0, name.size()), name)) {
    return 0;
  }
  std::size_t colon = name.size();
  while (colon < field.size() && isBlank(field[colon])) ++colon;
  return colon < field.size() && field[colon] == ':' ? colon + 1 : 0;
}

/// True when the CSeq field (RFC 3261 20.16) after a request line is among the first octets and names another method
/// than that line. A line that begins no header field ends the search, so that the lines after a start line are
/// searched once.
bool isCutRequest(std::string_view stream) {
  const std::string_view method = stream.substr(0, stream.find(' '));
  if (method.find('/') != method.npos) return false;  // the version of a response
  std::string_view rest = stream.substr(0, kSearchedAtOnce);
  for (takeField(rest); !rest.empty() && beginsField(rest) == Likeness::kYes;) {
    const std::string_view field = takeField(rest);
    const std::size_t value = valueOf(field, "CSeq");
    if (value == 0) continue;
    const std::string_view named = trimmed(field.substr(value));
    return !rest.empty() && named.substr(named.find_last_of(" \t\r\n") + 1) != method;
  }
  return false;
}

}  // namespace

// ---- text ----

std::string_view textOf(Octets octets) {
  return {reinterpret_cast<const char*>(octets.data()), octets.size()};
}

bool equalNocase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  return a == b || std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

std::string_view trimmed(std::string_view value) {
  while (!value.empty() && isBlank(value.front())) value.remove_prefix(1);
  while (!value.empty() && isBlank(value.back())) value.remove_suffix(1);
  return value;
}

std::size_t countLineEnds(Octets octets) {
  const auto isOther = [](std::uint8_t octet) { return octet != '\r' && octet != '\n'; };
  return static_cast<std::size_t>(std::find_if(octets.begin(), octets.end(), isOther) - octets.begin());
}

std::size_t endOfHeader(std::string_view stream, std::size_t known) {
  constexpr std::size_t kPartOfEnd = 3;
  std::size_t at = stream.find('\n', known < kPartOfEnd ? 0 : known - kPartOfEnd);
  for (; at != stream.npos; at = stream.find('\n', at + 1)) {
    const std::string_view next = stream.substr(at + 1, 2);
    if (next.starts_with('\n')) return at + 2;
    if (next == "\r\n") return at + 3;
  }
  return stream.npos;
}

std::string_view fieldOf(std::string_view header, std::string_view name, std::string_view shortName) {
  for (takeField(header); !header.empty();) {
    const std::string_view field = takeField(header);
    for (const std::string_view wanted : {name, shortName}) {
      if (const std::size_t value = valueOf(field, wanted); value > 0) return trimmed(field.substr(value));
    }
  }
  return {};
}

// ---- TPKT ----

Likeness beginsTpkt(Octets octets) {
  if (octets.empty()) return Likeness::kPerhaps;
  if (octets[0] != 3 || (octets.size() > 1 && octets[1] != 0)) return Likeness::kNo;
  if (octets.size() < kTpktHeader) return Likeness::kPerhaps;
  return lengthOfTpkt(octets) >= kTpktHeader ? Likeness::kYes : Likeness::kNo;
}

Cut cutTpkt(Octets octets) {
  const Likeness likeness = beginsTpkt(octets);
  if (likeness == Likeness::kNo) return {Cut::kLost};
  if (likeness == Likeness::kPerhaps) return {Cut::kMore};
  const std::size_t length = lengthOfTpkt(octets);
  if (length == kTpktHeader) return {Cut::kSkip, length};
  return {length > octets.size() ? Cut::kMore : Cut::kMessage, length};
}

Found findTpkt(Octets octets) {
  const std::size_t end = std::min(octets.size(), kSearchedAtOnce);
  for (std::size_t at = 0; at < end; ++at) {
    if (octets[at] != 3) continue;
    const Octets rest = octets.subspan(at);
    if (beginsTpkt(rest) != Likeness::kYes) continue;
    const std::size_t length = lengthOfTpkt(rest);
    if (length <= rest.size() && beginsTpkt(rest.subspan(length)) != Likeness::kNo) return {at, Likeness::kYes};
  }
  return {end};
}

// ---- SIP ----

Likeness beginsSipMessage(Octets octets) {
  const Likeness likeness = beginsSip(octets);
  if (likeness != Likeness::kYes) return likeness;
  const std::string_view stream = textOf(octets);
  const std::size_t line = stream.find('\n');
  if (line == stream.npos) return stream.size() > kLongestStartLine ? Likeness::kNo : Likeness::kPerhaps;
  const Likeness field = beginsField(stream.substr(line + 1));
  return field == Likeness::kYes && isCutRequest(stream) ? Likeness::kNo : field;
}

Cut cutSip(Octets octets, std::size_t known) {
  const std::string_view stream = textOf(octets);
  if (const std::size_t blank = countLineEnds(octets); blank > 0) return {Cut::kSkip, blank};
  // A start line is checked again only when more of it has arrived.
  const std::size_t line = known == 0 ? 0 : stream.find('\n');
  if (line == stream.npos && stream.size() <= kLongestStartLine) return {Cut::kMore};
  if (line >= known && beginsSip(octets) == Likeness::kNo) return {Cut::kLost};
  const std::size_t header = endOfHeader(stream, known);
  if (header == stream.npos) {
    return octets.size() > kMaxMessage ? Cut{Cut::kTooLong, octets.size()} : Cut{Cut::kMore};
  }
  const std::string_view value = fieldOf(stream.substr(0, header), "Content-Length", "l");
  std::uint64_t body = 0;
  std::from_chars(value.data(), value.data() + value.size(), body);
  if (body > kLongestBelieved) body = 0;
  const std::uint64_t length = header + body;
  if (length > kMaxMessage) return {Cut::kTooLong, length};
  return {length > octets.size() ? Cut::kMore : Cut::kMessage, length};
}

Found findSip(Octets octets) {
  const std::string_view stream = textOf(octets);
  for (std::size_t at = 0; at < stream.size();) {
    const Likeness likeness = beginsSipMessage(octets.subspan(at));
    if (likeness != Likeness::kNo) return {at, likeness};
    const std::size_t end = stream.find('\n', at);
    if (end == stream.npos) break;
    at = end + 1;
    if (at >= kSearchedAtOnce) return {at};
  }
  return {octets.size()};
}

}  // namespace voip
