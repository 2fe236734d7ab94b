#include "signalling/SipStartLine.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace voip {

namespace {

constexpr std::string_view kVersion = "SIP/2.0";

// Limits of a plausible start line. A stream that exceeds one is not SIP.
constexpr std::size_t kMaxMethodLength = 32;
constexpr std::size_t kMaxLineLength = 8'192;

bool isAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// A set of characters. Each octet of a URI or a method is looked up.
using CharacterSet = std::array<bool, 256>;

constexpr CharacterSet alphanumericAnd(std::string_view others) {
  CharacterSet set{};
  for (unsigned char c = '0'; c <= '9'; ++c) set[c] = true;
  for (unsigned char c = 'a'; c <= 'z'; ++c) set[c] = set[c - 'a' + 'A'] = true;
  for (const unsigned char c : others) set[c] = true;
  return set;
}

constexpr CharacterSet kToken = alphanumericAnd("-.!%*_+`'~");
constexpr CharacterSet kScheme = alphanumericAnd("+-.");

// Octets above 127 must be escaped, but some senders do not.
constexpr CharacterSet kUri = [] {
  CharacterSet set{};
  for (std::size_t c = ' ' + 1; c < set.size(); ++c) set[c] = c != 127;
  return set;
}();

std::string_view textOf(std::span<const std::uint8_t> octets) {
  return {reinterpret_cast<const char*>(octets.data()), octets.size()};
}

/// Removes the longest beginning whose characters are all in the set, and returns its length.
std::size_t takeWhile(std::string_view& text, const CharacterSet& set) {
  std::size_t length = 0;
  while (length < text.size() && set[static_cast<unsigned char>(text[length])]) ++length;
  text.remove_prefix(length);
  return length;
}

/// True when `text` begins with `wanted`, or is a beginning of it, in any case.
bool startsLike(std::string_view text, std::string_view wanted) {
  if (text.starts_with(wanted)) return true;
  const std::size_t length = std::min(text.size(), wanted.size());
  if (length == 0) return true;
  constexpr int kCaseBit = 0x20;
  return ((text.front() ^ wanted.front()) & ~kCaseBit) == 0 && strncasecmp(text.data(), wanted.data(), length) == 0;
}

Likeness lineEnd(std::string_view text) {
  if (text.starts_with('\r')) text.remove_prefix(1);
  if (text.empty()) return Likeness::kPerhaps;
  return text.front() == '\n' ? Likeness::kYes : Likeness::kNo;
}

/// Removes a URI: a scheme, a colon, and at least one more character.
Likeness takeUri(std::string_view& text) {
  if (!text.empty() && !isAlpha(text.front())) return Likeness::kNo;
  takeWhile(text, kScheme);
  if (text.empty()) return Likeness::kPerhaps;
  const bool hasColon = text.front() == ':';
  const std::size_t length = takeWhile(text, kUri);
  if (!hasColon || (length < 2 && !text.empty())) return Likeness::kNo;
  return text.empty() ? Likeness::kPerhaps : Likeness::kYes;
}

/// Whether `text` is what follows the method and its blank. Sets `isComplete` when it contains the whole version.
Likeness restOfRequestLine(std::string_view text, bool& isComplete) {
  if (const Likeness likeness = takeUri(text); likeness != Likeness::kYes) return likeness;
  if (text.front() != ' ') return Likeness::kNo;
  text.remove_prefix(1);
  if (!startsLike(text, kVersion)) return Likeness::kNo;
  isComplete = text.size() >= kVersion.size();
  return isComplete ? lineEnd(text.substr(kVersion.size())) : Likeness::kPerhaps;
}

}  // namespace

bool isSipTokenCharacter(char c) {
  return kToken[static_cast<unsigned char>(c)];
}

Likeness beginsSip(std::span<const std::uint8_t> octets) {
  std::string_view text = textOf(octets);
  if (startsLike(text, kVersion)) {
    if (text.size() <= kVersion.size()) return Likeness::kPerhaps;
    return text[kVersion.size()] == ' ' ? Likeness::kYes : Likeness::kNo;
  }
  const std::size_t method = takeWhile(text, kToken);
  if (method == 0 || method > kMaxMethodLength) return Likeness::kNo;
  if (text.empty()) return Likeness::kPerhaps;
  if (text.front() != ' ') return Likeness::kNo;
  bool isComplete = false;
  const Likeness likeness = restOfRequestLine(text.substr(1), isComplete);
  return likeness == Likeness::kPerhaps && text.size() > kMaxLineLength ? Likeness::kNo : likeness;
}

bool isSipRequestWithAnyUri(std::span<const std::uint8_t> datagram) {
  std::string_view text = textOf(datagram);
  text.remove_prefix(std::min(text.find_first_not_of("\r\n"), text.size()));
  // Most datagrams are RTP and end here.
  if (takeWhile(text, kToken) == 0 || !text.starts_with(' ')) return false;
  bool isComplete = false;
  const Likeness likeness = restOfRequestLine(text.substr(1), isComplete);
  return likeness == Likeness::kYes || (likeness == Likeness::kPerhaps && isComplete);
}

}  // namespace voip
