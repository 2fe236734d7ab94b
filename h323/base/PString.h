#pragma once

#include <concepts>
#include <cstddef>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>

/// A text of 8-bit characters. It ends before its first zero character: the constructors and operator+= drop a zero
/// character and everything after it.
class PString {
 public:
  enum Comparison { LessThan = -1, EqualTo = 0, GreaterThan = 1 };

  PString() = default;
  /// A null pointer makes the empty text.
  PString(const char* text) : PString(text == nullptr ? std::string_view() : std::string_view(text)) {}
  PString(std::string_view text) : text_(text.substr(0, text.find('\0'))) {}
  PString(const std::string& text) : PString(std::string_view(text)) {}
  /// The number in decimal.
  template <std::integral Number>
  requires(!std::same_as<Number, char> && !std::same_as<Number, bool>) explicit PString(Number number)
      : text_(std::to_string(number)) {}

  /// Terminated by a zero character; valid until the text is changed.
  operator const char*() const { return text_.c_str(); }

  std::size_t GetLength() const { return text_.size(); }
  bool IsEmpty() const { return text_.empty(); }

  /// Compares character codes as unsigned numbers. A text is greater than its own beginning.
  Comparison Compare(const PString& other) const;

  /// Returns a copy without the white space (isspace of the C locale) at either end.
  PString Trim() const;

  PString& operator+=(const PString& text) { return *this += text.text_.c_str(); }
  PString& operator+=(const char* text) {
    text_ += text;
    return *this;
  }
  PString& operator+=(char character) {
    if (character != '\0') text_ += character;
    return *this;
  }

  friend PString operator+(PString left, const PString& right) { return left += right; }
  friend PString operator+(PString left, const char* right) { return left += right; }
  friend PString operator+(const char* left, const PString& right) { return PString(left) += right; }

  friend bool operator==(const PString& left, const PString& right) { return left.text_ == right.text_; }
  friend bool operator==(const PString& left, const char* right) { return left == PString(right); }
  friend bool operator<(const PString& left, const PString& right) { return left.Compare(right) == LessThan; }
  friend std::ostream& operator<<(std::ostream& stream, const PString& text) { return stream << text.text_; }

 private:
  std::string text_;
};

/// A stream whose output is read as a PString.
class PStringStream : public std::ostringstream {
 public:
  operator PString() const { return PString(view()); }
};
