#pragma once

#include <string>

/// Splits a text on a single separator character.
///
/// "a;;b" gives "a", "" and "b"; a separator at the end adds nothing: "a;" gives only "a". An empty text gives no
/// token.
class StringTokenizer {
 public:
  /// Copies `text`, which must not be null.
  StringTokenizer(const char* text, char separator);
  virtual ~StringTokenizer() = default;

  bool hasMoreTokens() const;

  /// The text before the next separator, or the rest when there is none; empty when nothing is left.
  std::string nextToken();

 private:
  std::string buffer;  ///< what has not been handed out yet
  char separator;
};
