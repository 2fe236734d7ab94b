#include "h323/base/PString.h"

#include <cctype>

PString::Comparison PString::Compare(const PString& other) const {
  // std::char_traits<char> compares characters as unsigned char.
  const int order = text_.compare(other.text_);
  return order < 0 ? LessThan : order > 0 ? GreaterThan : EqualTo;
}

PString PString::Trim() const {
  const auto isBlank = [](unsigned char character) { return std::isspace(character) != 0; };
  std::string_view text = text_;
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return PString(text);
}
