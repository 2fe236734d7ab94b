#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

// ASN.1 types as constants. The tables of the recommendations (H225Schema.h, H235Schema.h, H245Schema.h) are written
// with these types so that they read like their ASN.1:
//
//   CallIdentifier ::= SEQUENCE                  inline constexpr Sequence CallIdentifier({
//   {                                                {"guid", GloballyUniqueID},
//       guid    GloballyUniqueID,                    kExtensible,
//       ...                                      });
//   }
//
// An identifier has "_" where ASN.1 has "-". SET OF is written as SEQUENCE OF, because packed encoding treats both
// alike. The constructors compute at compile time what packed encoding needs to know about a type.
namespace asn1 {

enum class Kind : std::uint8_t {
  kNull,
  kBoolean,
  kInteger,
  kEnumerated,
  kObjectIdentifier,
  kBitString,
  kOctetString,
  kCharacterString,
  kBmpString,
  kOpenType,
  kSequence,
  kSequenceOf,
  kChoice
};

inline constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
inline constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

/// The limits of a value or of a size, both included, and how X.691 (July 2002, 10.5 to 10.8) codes a number within
/// them.
struct Range {
  enum class Coding : std::uint8_t {
    kSingle,
    kBits,
    kOctet,
    kTwoOctets,
    kUpToOctets,
    kSemiConstrained,
    kUnconstrained
  };

  std::int64_t lower = kMin;
  std::int64_t upper = kMax;
  Coding coding = Coding::kUnconstrained;
  std::uint8_t width = 0;  ///< kBits: the number of bits; kUpToOctets: the bits of the number of octets

  constexpr Range() = default;
  constexpr Range(std::int64_t from, std::int64_t to) : lower(from), upper(to) {
    if (lower == kMin) return;
    if (upper == kMax) {
      coding = Coding::kSemiConstrained;
      return;
    }
    const std::uint64_t span = static_cast<std::uint64_t>(upper) - static_cast<std::uint64_t>(lower);
    if (span == 0) {
      coding = Coding::kSingle;
    } else if (span < 255) {
      coding = Coding::kBits;
      width = static_cast<std::uint8_t>(std::bit_width(span));
    } else if (span == 255) {
      coding = Coding::kOctet;
    } else if (span < 65536) {
      coding = Coding::kTwoOctets;
    } else {
      coding = Coding::kUpToOctets;
      width = static_cast<std::uint8_t>(std::bit_width((std::bit_width(span) + 7U) / 8 - 1));
    }
  }
};

/// The characters that a string may contain, in the order of their codes.
struct Alphabet {
  char characters[20] = {};
  std::uint8_t size = 0;

  /// `unordered` has the characters in any order.
  explicit constexpr Alphabet(std::string_view unordered) {
    for (const char character : unordered) {
      std::size_t i = size++;
      for (; i > 0 && characters[i - 1] > character; --i) characters[i] = characters[i - 1];
      characters[i] = character;
    }
  }
  constexpr bool contains(char character) const {
    return std::string_view(characters, size).find(character) != std::string_view::npos;
  }
};

struct Type;

/// The most optional components that the root of a SEQUENCE may have: the decoder reads their presence bits at once.
inline constexpr unsigned kMaxOptional = 56;

enum Presence : std::uint8_t { kMandatory, kOptional, kExtensionMarker };

/// A component of a SEQUENCE, an alternative of a CHOICE or a name of an ENUMERATED.
struct Field {
  const char* name;
  const Type* type;
  Presence presence;

  constexpr Field(const char* identifier, const Type& fieldType, Presence fieldPresence = kMandatory)
      : name(identifier), type(&fieldType), presence(fieldPresence) {}
  constexpr Field() : name("..."), type(nullptr), presence(kExtensionMarker) {}
};

/// The extension marker. The fields after it are extension additions.
inline constexpr Field kExtensible;

struct Type {
  Kind kind = Kind::kNull;
  bool extensible = false;
  std::uint8_t unit = 0;           ///< strings: the bits of a character; 8 for octets, 1 for bits
  std::uint8_t optionalCount = 0;  ///< SEQUENCE: optional components of the root
  std::uint16_t rootCount = 0;
  std::uint16_t fieldCount = 0;  ///< including the extension additions, without the marker
  const Field* fields = nullptr;
  const Type* element = nullptr;       ///< SEQUENCE OF
  const Alphabet* alphabet = nullptr;  ///< strings of restricted characters
  Range range;  ///< INTEGER: of the value; CHOICE, ENUMERATED: of the root index; others: of the size

  constexpr Type() = default;
  explicit constexpr Type(Kind ofKind) : kind(ofKind) {}
  constexpr Type(const Type&) = delete;
  Type& operator=(const Type&) = delete;
};

/// The common base of SEQUENCE, CHOICE and ENUMERATED: a list of fields.
template <std::size_t kCount>
struct FieldList : Type {
  Field list[kCount];

  constexpr FieldList(Kind ofKind, const Field (&all)[kCount]) : Type(ofKind) {
    for (const Field& field : all) {
      if (field.presence == kExtensionMarker) {
        extensible = true;
        continue;
      }
      list[fieldCount++] = field;
      if (extensible) continue;
      ++rootCount;
      optionalCount += field.presence == kOptional;
      if (optionalCount > kMaxOptional) throw "the decoder does not read so many presence bits at once";
    }
    fields = list;
    range = Range(0, kind == Kind::kSequence ? 0 : rootCount - 1);
  }
};

template <std::size_t kCount>
struct Sequence : FieldList<kCount> {
  explicit constexpr Sequence(const Field (&all)[kCount]) : FieldList<kCount>(Kind::kSequence, all) {}
};

template <std::size_t kCount>
struct Choice : FieldList<kCount> {
  explicit constexpr Choice(const Field (&all)[kCount]) : FieldList<kCount>(Kind::kChoice, all) {}
};

template <std::size_t kCount>
struct Enumerated : FieldList<kCount> {
  explicit constexpr Enumerated(const Field (&all)[kCount]) : FieldList<kCount>(Kind::kEnumerated, all) {}
};

/// A SEQUENCE without components.
struct EmptySequence : Type {
  explicit constexpr EmptySequence(bool isExtensible) : Type(Kind::kSequence) { extensible = isExtensible; }
};

struct IntegerType : Type {
  constexpr IntegerType(std::int64_t lower, std::int64_t upper, bool isExtensible) : Type(Kind::kInteger) {
    range = Range(lower, upper);
    extensible = isExtensible;
  }
};

struct StringType : Type {
  constexpr StringType(Kind ofKind, std::uint8_t bitsPerUnit, std::int64_t lower, std::int64_t upper,
                       const Alphabet* characters = nullptr)
      : Type(ofKind) {
    // X.691 does not pad before a string of less than 16 bits; the decoder pads before every string of variable size.
    if (lower != upper && upper < 16 / bitsPerUnit) throw "the decoder does not know short strings without padding";
    unit = bitsPerUnit;
    range = Range(lower, upper);
    alphabet = characters;
  }
};

struct SequenceOfType : Type {
  constexpr SequenceOfType(const Type& ofType, std::int64_t lower, std::int64_t upper) : Type(Kind::kSequenceOf) {
    if (lower != 0 && upper >= 65536) throw "the decoder does not check the lower limit of a list without an upper one";
    element = &ofType;
    range = Range(lower, upper);
  }
};

inline constexpr Type Null(Kind::kNull);
inline constexpr Type Boolean(Kind::kBoolean);
inline constexpr StringType ObjectIdentifier(Kind::kObjectIdentifier, 8, 0, kMax);
inline constexpr StringType OpenType(Kind::kOpenType, 8, 0, kMax);

template <std::int64_t kLower = kMin, std::int64_t kUpper = kMax>
inline constexpr IntegerType Integer(kLower, kUpper, false);
/// An INTEGER with an extension marker in its constraint.
template <std::int64_t kLower, std::int64_t kUpper>
inline constexpr IntegerType ExtensibleInteger(kLower, kUpper, true);

// Strings: OctetString<> has any size, OctetString<4> size 4, OctetString<1, 20> a size from 1 to 20.
template <std::int64_t kLower = 0, std::int64_t kUpper = kLower == 0 ? kMax : kLower>
inline constexpr StringType BitString(Kind::kBitString, 1, kLower, kUpper);
template <std::int64_t kLower = 0, std::int64_t kUpper = kLower == 0 ? kMax : kLower>
inline constexpr StringType OctetString(Kind::kOctetString, 8, kLower, kUpper);
template <std::int64_t kLower = 0, std::int64_t kUpper = kLower == 0 ? kMax : kLower>
inline constexpr StringType BmpString(Kind::kBmpString, 16, kLower, kUpper);
template <std::int64_t kLower = 0, std::int64_t kUpper = kLower == 0 ? kMax : kLower>
inline constexpr StringType IA5String(Kind::kCharacterString, 8, kLower, kUpper);
inline constexpr StringType GeneralString(Kind::kCharacterString, 8, 0, kMax);

/// An IA5String (FROM (...)). The aligned variant codes a character in 1, 2, 4 or 8 bits. 8 bits are the character
/// code; fewer bits are the index in the alphabet.
template <const Alphabet& kAlphabet, std::int64_t kLower = 0, std::int64_t kUpper = kLower == 0 ? kMax : kLower>
inline constexpr StringType IA5StringFrom(Kind::kCharacterString,
                                          std::bit_ceil(static_cast<unsigned>(std::bit_width(kAlphabet.size - 1U))),
                                          kLower, kUpper, &kAlphabet);

inline constexpr Alphabet kNumeric("0123456789 ");
template <std::int64_t kLower, std::int64_t kUpper>
inline constexpr const StringType& NumericString = IA5StringFrom<kNumeric, kLower, kUpper>;

template <const auto& kElement, std::int64_t kLower = 0, std::int64_t kUpper = kMax>
inline constexpr SequenceOfType SequenceOf(kElement, kLower, kUpper);

/// Returns the index of the field `name`. A name that the type does not have does not compile.
consteval unsigned indexOf(const Type& type, std::string_view name) {
  for (unsigned i = 0; i < type.fieldCount; ++i) {
    if (type.fields[i].name == name) return i;
  }
  throw "no such field";
}

}  // namespace asn1
