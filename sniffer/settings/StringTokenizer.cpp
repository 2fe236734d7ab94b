#include "settings/StringTokenizer.h"

#include <utility>

StringTokenizer::StringTokenizer(const char* text, char separatorChar) : buffer(text), separator(separatorChar) {}

bool StringTokenizer::hasMoreTokens() const {
  return !buffer.empty();
}

std::string StringTokenizer::nextToken() {
  const auto end = buffer.find(separator);
  if (end == std::string::npos) return std::exchange(buffer, {});
  std::string token = buffer.substr(0, end);
  buffer.erase(0, end + 1);
  return token;
}
