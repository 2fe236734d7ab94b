// Encodes random values of every type of both schemas and compares what the decoder makes of them.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "h323/decoder/PERDecoder.h"
#include "h323/schema/H225Schema.h"
#include "h323/schema/H245Schema.h"

namespace {

using asn1::Kind;
using asn1::Range;
using asn1::Type;
using asn1::Value;
using Octets = std::vector<std::uint8_t>;
using Fields = std::set<std::pair<const Type*, unsigned>>;

/// The contents of a message in a list, each value before the values that it contains: numbers, tags, component
/// indices, the numbers of entries, the lengths of strings before their octets.
using Contents = std::vector<std::int64_t>;

bool isString(const Type& type) {
  return type.kind >= Kind::kObjectIdentifier && type.kind <= Kind::kOpenType;
}

/// Appends a string as the decoder returns it: a 4-bit character is an octet, and bits after the last one are ignored.
void appendString(const Type& type, std::size_t length, const std::uint8_t* octets, Contents& contents) {
  contents.push_back(static_cast<std::int64_t>(length));
  const std::size_t bits = length * (type.unit == 4 ? 8 : type.unit);
  contents.insert(contents.end(), octets, octets + (bits + 7) / 8);
  if (bits % 8 != 0) contents.back() &= 0xFF << (8 - bits % 8);
}

void appendContents(const Value& value, Contents& contents) {
  if (isString(*value.type)) return appendString(*value.type, value.length, value.octets, contents);
  if (value.type->kind < Kind::kObjectIdentifier) return contents.push_back(value.number);
  if (value.type->kind != Kind::kSequence) contents.push_back(value.length);
  for (const Value* child = value.child; child != nullptr; child = child->next) {
    contents.push_back(child->index);
    appendContents(*child, contents);
  }
}

/// Collects the fields of `type` and of every type that it contains.
void collectFields(const Type& type, Fields& fields) {
  if (type.element != nullptr) collectFields(*type.element, fields);
  for (unsigned i = 0; i < type.fieldCount; ++i) {
    if (fields.insert({&type, i}).second) collectFields(*type.fields[i].type, fields);
  }
}

unsigned octetsFor(std::uint64_t number) {
  return number < 256 ? 1 : 1 + octetsFor(number >> 8);
}

/// Makes random values and prefers fields that it has not made yet. Encodes them at the same time, bit by bit,
/// according to X.691 (July 2002, basic packed encoding rules, aligned variant). It uses only the types of the tables,
/// not what they compute for the decoder.
class RandomMessages {
 public:
  Octets octets;
  Contents contents;
  Fields made;

  void make(const Type& root) {
    octets.clear();
    used_ = 0;
    contents.clear();
    value(root, 0);
  }

 private:
  /// A message nests no deeper than necessary from this depth.
  static constexpr unsigned kDeep = 8;

  std::size_t upTo(std::size_t most) { return std::uniform_int_distribution<std::size_t>(0, most)(random_); }

  void bits(std::uint64_t number, unsigned count) {
    while (count-- > 0) {
      if (used_ % 8 == 0) octets.push_back(0);
      octets.back() |= static_cast<std::uint8_t>((number >> count & 1) << (7 - used_++ % 8));
    }
  }
  void align() { used_ = octets.size() * 8; }

  bool isNew(const Type& type, unsigned field) const { return !made.contains({&type, field}); }

  void value(const Type& type, unsigned depth) {
    if (isString(type)) return string(type);
    if (type.kind < Kind::kObjectIdentifier) return number(type);
    if (type.kind == Kind::kSequence) return sequence(type, depth);
    if (type.kind == Kind::kChoice) return choice(type, depth);
    const std::int64_t entries =
        std::min(type.range.upper, type.range.lower + static_cast<std::int64_t>(upTo(depth < kDeep ? 2 : 0)));
    contents.push_back(entries);
    size(static_cast<std::size_t>(entries), type.range);
    for (std::int64_t i = 0; i < entries; ++i) {
      contents.push_back(0);
      value(*type.element, depth + 1);
    }
  }

  void number(const Type& type) {
    std::int64_t number = 0;
    if (type.kind == Kind::kBoolean) {
      bits(static_cast<std::uint64_t>(number = static_cast<std::int64_t>(upTo(1))), 1);
    } else if (type.kind != Kind::kNull) {
      for (unsigned i = 0; i < type.fieldCount; ++i) made.insert({&type, i});
      // Prefers the limits, where faults are likely.
      const std::int64_t any = std::uniform_int_distribution<std::int64_t>(type.range.lower, type.range.upper)(random_);
      const bool beyond = type.kind == Kind::kInteger && type.extensible && upTo(3) == 0;
      number = beyond ? type.range.upper + 1 + any % 100000
                      : std::array{type.range.lower, type.range.upper, any, any}[upTo(3)];
      if (type.extensible) bits(beyond, 1);
      whole(number, beyond ? Range() : type.range);
    }
    contents.push_back(number);
  }

  void string(const Type& type) {
    // Open types and object identifiers are never empty.
    const bool never = type.kind == Kind::kOpenType || type.kind == Kind::kObjectIdentifier;
    const std::size_t least = static_cast<std::size_t>(std::max<std::int64_t>(type.range.lower, never));
    std::size_t length =
        least + upTo(static_cast<std::size_t>(std::min<std::int64_t>(type.range.upper - type.range.lower, 40)));
    Octets string(length * 2 + 1);
    for (std::uint8_t& octet : string) {
      octet = static_cast<std::uint8_t>(
          type.alphabet == nullptr ? upTo(255) : type.alphabet->characters[upTo(type.alphabet->size - 1U)]);
    }
    appendString(type, length, string.data(), contents);
    const bool fixed = type.range.lower == type.range.upper;
    if (!fixed) size(length, type.range);
    if (fixed ? length * type.unit > 16 : length > 0) align();
    for (std::size_t i = 0; i < length * std::max(type.unit / 8, 1); ++i) {
      if (type.unit == 1) bits(string[i / 8] >> (7 - i % 8), 1);
      if (type.unit >= 8) bits(string[i], 8);
      if (type.unit == 4)
        bits(static_cast<std::uint64_t>(std::ranges::find(type.alphabet->characters, static_cast<char>(string[i])) -
                                        type.alphabet->characters),
             4);
    }
  }

  void sequence(const Type& type, unsigned depth) {
    std::vector<bool> present(type.fieldCount);
    bool extended = false;
    for (unsigned i = 0; i < type.fieldCount; ++i) {
      const bool mayMiss = i >= type.rootCount || type.fields[i].presence == asn1::kOptional;
      present[i] = !mayMiss || (depth <= kDeep && (isNew(type, i) || upTo(depth) < 2));
      if (present[i]) made.insert({&type, i});
      extended |= present[i] && i >= type.rootCount;
    }
    if (type.extensible) bits(extended, 1);
    for (unsigned i = 0; i < type.rootCount; ++i) {
      if (type.fields[i].presence == asn1::kOptional) bits(present[i], 1);
    }
    const auto put = [&](unsigned i) {
      contents.push_back(i);
      i < type.rootCount ? value(*type.fields[i].type, depth + 1) : addition(*type.fields[i].type, depth + 1);
    };
    for (unsigned i = 0; i < type.rootCount; ++i) {
      if (present[i]) put(i);
    }
    if (!extended) return;
    bits(present.size() - type.rootCount - 1, 7);
    for (std::size_t i = type.rootCount; i < present.size(); ++i) bits(present[i], 1);
    for (unsigned i = type.rootCount; i < present.size(); ++i) {
      if (present[i]) put(i);
    }
  }

  void choice(const Type& type, unsigned depth) {
    unsigned tag =
        depth > kDeep ? 0 : static_cast<unsigned>(upTo(type.fieldCount - 1U));  // alternative 0 never recurses
    for (unsigned i = 0; i < type.fieldCount && depth <= kDeep && !isNew(type, tag); ++i) {
      tag = (tag + 1) % type.fieldCount;
    }
    contents.insert(contents.end(), {tag, 0});
    made.insert({&type, tag});
    const bool beyond = tag >= type.rootCount;
    if (type.extensible) bits(beyond, 1);
    beyond ? bits(tag - type.rootCount, 7) : whole(tag, Range(0, type.rootCount - 1));
    beyond ? addition(*type.fields[tag].type, depth + 1) : value(*type.fields[tag].type, depth + 1);
  }

  /// Encodes a value after its length in octets.
  void addition(const Type& type, unsigned depth) {
    const Octets outer = std::exchange(octets, {});
    const std::size_t used = std::exchange(used_, 0);
    value(type, depth);
    const Octets inner = std::exchange(octets, outer);
    used_ = used;
    size(std::max<std::size_t>(inner.size(), 1), Range(0, asn1::kMax));
    if (inner.empty()) bits(0, 8);
    for (const std::uint8_t octet : inner) bits(octet, 8);
  }

  // X.691, 10.5, 10.7 and 10.8
  void whole(std::int64_t number, const Range& range) {
    const std::uint64_t offset = static_cast<std::uint64_t>(number) - static_cast<std::uint64_t>(range.lower);
    const std::uint64_t span = static_cast<std::uint64_t>(range.upper) - static_cast<std::uint64_t>(range.lower);
    if (range.lower == asn1::kMin) {
      unsigned count = 1;
      while (count < 8 && number >> (count * 8 - 1) != (number < 0 ? -1 : 0)) ++count;
      size(count, range);
      bits(static_cast<std::uint64_t>(number), count * 8);
    } else if (range.upper == asn1::kMax) {
      size(octetsFor(offset), range);
      bits(offset, octetsFor(offset) * 8);
    } else if (span < 255) {
      unsigned width = 0;
      while (span >> width != 0) ++width;
      bits(offset, width);
    } else if (span < 65536) {
      align();
      bits(offset, span == 255 ? 8 : 16);
    } else {
      whole(octetsFor(offset), Range(1, octetsFor(span)));
      align();
      bits(offset, octetsFor(offset) * 8);
    }
  }

  // X.691, 10.9.3.5 to 10.9.3.7
  void size(std::size_t count, const Range& range) {
    if (range.upper < 65536) return whole(static_cast<std::int64_t>(count), range);
    align();
    count < 128 ? bits(count, 8) : bits(0x8000 | count, 16);
  }

  std::mt19937 random_{20};
  std::size_t used_ = 0;  // bits
};

TEST(RoundTrip, OfEveryTypeThereIs) {
  Fields all;
  collectFields(asn1::h245::MultimediaSystemControlMessage, all);
  collectFields(asn1::h225::H323_UserInformation, all);
  RandomMessages message;
  const auto arena = std::make_unique<asn1::Arena>();
  for (int i = 0; i < 10; ++i) {
    for (const auto& [type, index] : all) {
      message.make(*type);
      PPER_Stream stream(PBYTEArray(message.octets.data(), message.octets.size()));
      const Value& decoded = asn1::decode(*type, stream, *arena);
      ASSERT_FALSE(stream.failed());
      Contents contents;
      appendContents(decoded, contents);
      ASSERT_TRUE(contents == message.contents) << type->fields[index].name;
      // The decoder needs the last octet, so the message has no octet too many.
      if (message.octets.empty()) continue;
      PPER_Stream cut(PBYTEArray(message.octets.data(), message.octets.size() - 1));
      asn1::decode(*type, cut, *arena);
      EXPECT_TRUE(cut.failed());
    }
  }
  EXPECT_EQ(message.made, all);
}

}  // namespace
