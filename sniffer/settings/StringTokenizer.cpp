#include "settings/StringTokenizer.h"

#include <utility>

StringTokenizer::StringTokenizer(const char* text, char separator) : buffer_(text), separator_(separator) {}

bool StringTokenizer::hasMoreTokens() const {
  return !buffer_.empty();
}

std::string StringTokenizer::nextToken() {
  const auto end = buffer_.find(separator_);
  if (end == std::string::npos) return std::exchange(buffer_, {});
  std::string token = buffer_.substr(0, end);
  buffer_.erase(0, end + 1);
  return token;
}
