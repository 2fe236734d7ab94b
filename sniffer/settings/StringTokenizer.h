#pragma once

#include <string>

/// Splits a text at a separator character.
///
/// "a;;b" has the tokens "a", "" and "b". A separator at the end adds no token: "a;" has only "a". An empty text has no
/// token.
class StringTokenizer {
 public:
  /// Copies `text`, which must not be null.
  StringTokenizer(const char* text, char separator);
  virtual ~StringTokenizer() = default;

  bool hasMoreTokens() const;

  /// Returns the text before the next separator, or the rest of the text. Empty when there is no token left.
  std::string nextToken();

 private:
  std::string buffer_;  ///< the text not yet returned
  char separator_;
};
