#include "SipAnyUri.h"

#include <strings.h>

#include <algorithm>
#include <string_view>

namespace {

bool isAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isAlphanumericOr(std::string_view others, char c) {
  return isAlpha(c) || (c >= '0' && c <= '9') || others.find(c) != others.npos;
}

bool isTokenCharacter(char c) {
  return isAlphanumericOr("-.!%*_+`'~", c);
}

// Scheme, colon, and something without blanks and control characters. (Octets above 127 have to be escaped, but not
// everybody does.)
bool isUri(std::string_view word) {
  const std::size_t colon = word.find(':');
  if (word.empty() || !isAlpha(word[0]) || colon >= word.size() - 1) return false;
  return std::ranges::all_of(word.substr(0, colon), [](char c) { return isAlphanumericOr("+-.", c); }) &&
         std::ranges::none_of(word, [](u_char c) { return c <= ' ' || c == 127; });
}

bool isVersion(std::string_view word) {
  return word.size() == 7 && strncasecmp(word.data(), "SIP/2.0", word.size()) == 0;
}

}  // namespace

bool isSipRequestWithAnyUri(const u_char* payload, std::size_t length) {
  std::string_view text(reinterpret_cast<const char*>(payload), length);
  text.remove_prefix(std::min(text.find_first_not_of("\r\n"), text.size()));
  // Most of what is asked about is RTP, and ends here.
  const auto method = static_cast<std::size_t>(std::ranges::find_if_not(text, isTokenCharacter) - text.begin());
  if (method == 0 || method == text.size() || text[method] != ' ') return false;
  std::string_view line = text.substr(method + 1);
  line = line.substr(0, line.find('\n'));
  if (line.ends_with('\r')) line.remove_suffix(1);
  const std::size_t uri = line.find(' ');
  return uri != line.npos && isUri(line.substr(0, uri)) && isVersion(line.substr(uri + 1));
}
