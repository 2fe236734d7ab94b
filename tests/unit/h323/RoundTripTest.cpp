// Random messages over the whole of both schemas: what is decoded is what was encoded.

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "H225Schema.h"
#include "H245Schema.h"
#include "PERDecoder.h"

namespace {

using asn1::Kind;
using asn1::Range;
using asn1::Type;
using asn1::Value;
using Octets = std::vector<uint8_t>;

constexpr size_t kFragment = 16384;

// What a value holds, and where it stands. A message is the list of these, each value in front of what is in it.
struct Item {
  const Type* type;
  unsigned depth;
  unsigned index;  // in a SEQUENCE: which component it is
  int64_t number;  // the number; strings: the length; CHOICE: the tag; SEQUENCE OF: the entries
  Octets octets;   // of strings

  bool operator==(const Item&) const = default;
};

bool isNumber(Kind kind) {
  return kind == Kind::kNull || kind == Kind::kBoolean || kind == Kind::kInteger || kind == Kind::kEnumerated;
}

bool isString(Kind kind) {
  return !isNumber(kind) && kind != Kind::kSequence && kind != Kind::kSequenceOf && kind != Kind::kChoice;
}

// The octets that a string takes once it is decoded.
size_t octetsFor(const Type& type, size_t length) {
  const unsigned bits = type.unit == 4 ? 8 : type.unit;
  return (length * bits + 7) / 8;
}

// Behind the last bit of a bit string anything may stand.
void clearUnusedBits(const Type& type, size_t length, Octets& octets) {
  if (type.kind == Kind::kBitString && length % 8 != 0) octets.back() &= static_cast<uint8_t>(0xFF << (8 - length % 8));
}

void appendItems(const Value& value, unsigned depth, std::vector<Item>& items) {
  const Type& type = *value.type;
  Item& item = items.emplace_back(Item{&type, depth, value.index, value.length, {}});
  if (isNumber(type.kind)) {
    item.number = value.number;
  } else if (isString(type.kind)) {
    item.octets.assign(value.octets, value.octets + octetsFor(type, value.length));
    clearUnusedBits(type, value.length, item.octets);
  } else {
    for (const Value* child = value.child; child != nullptr; child = child->next) appendItems(*child, depth + 1, items);
  }
}

using Entry = std::pair<const Type*, unsigned>;  // a field of a type

void collectFields(const Type& type, std::set<Entry>& fields) {
  if (type.element != nullptr) collectFields(*type.element, fields);
  for (unsigned i = 0; i < type.fieldCount; ++i) {
    if (fields.insert({&type, i}).second) collectFields(*type.fields[i].type, fields);
  }
}

// All fields that `root` reaches.
std::set<Entry> fieldsOf(const Type& root) {
  std::set<Entry> fields;
  collectFields(root, fields);
  return fields;
}

class BitWriter {
 public:
  void bits(uint64_t number, unsigned count) {
    while (count-- > 0) {
      if (used_ % 8 == 0) octets_.push_back(0);
      octets_.back() |= static_cast<uint8_t>((number >> count & 1) << (7 - used_ % 8));
      ++used_;
    }
  }
  void align() { used_ = octets_.size() * 8; }
  Octets finish() const { return octets_.empty() ? Octets(1) : octets_; }

 private:
  Octets octets_;
  size_t used_ = 0;
};

unsigned octetsOf(uint64_t number) {
  return number < 256 ? 1 : 1 + octetsOf(number >> 8);
}

// Makes messages at random, those fields first that it has not made yet. They are encoded while they are made, bit by
// bit, straight from X.691 (basic packed encoding rules, aligned variant): of the tables only the types are used, not
// what was worked out for the decoder.
class RandomMessages {
 public:
  // With `future` the sender speaks a later version of the standard: it appends extension additions nobody knows, and
  // leaves more in an addition than is known.
  void make(const Type& root, bool future) {
    future_ = future;
    out_ = BitWriter();
    items_.clear();
    value(root, 0, 0);
  }
  Octets octets() const { return out_.finish(); }
  const std::vector<Item>& items() const { return items_; }
  const std::set<Entry>& made() const { return made_; }

 private:
  // From here on a message goes no deeper than it must.
  static constexpr unsigned kDeep = 18;

  size_t upTo(size_t most) { return std::uniform_int_distribution<size_t>(0, most)(random_); }
  bool oneIn(size_t count) { return upTo(count - 1) == 0; }

  bool leadsToNew(const Type& type, unsigned field) {
    if (!made_.contains({&type, field})) return true;
    const Type& below = *type.fields[field].type;
    if (complete_.contains(&below)) return false;
    auto& reachable = reachable_[&below];
    if (reachable.empty()) reachable = fieldsOf(below);
    if (!std::ranges::includes(made_, reachable)) return true;
    complete_.insert(&below);
    return false;
  }

  void value(const Type& type, unsigned depth, unsigned index) {
    const Item item{&type, depth, index, 0, {}};
    if (isNumber(type.kind)) return number(item);
    if (type.kind == Kind::kSequence) return sequence(item);
    if (type.kind == Kind::kSequenceOf) return sequenceOf(item);
    if (type.kind == Kind::kChoice) return choice(item);
    string(item);
  }

  void number(Item item) {
    const Type& type = *item.type;
    const Range& range = type.range;
    if (type.kind == Kind::kBoolean) {
      item.number = static_cast<int64_t>(upTo(1));
      out_.bits(static_cast<uint64_t>(item.number), 1);
    } else if (type.kind == Kind::kEnumerated) {
      for (unsigned i = 0; i < type.fieldCount; ++i) made_.insert({&type, i});
      item.number = static_cast<int64_t>(upTo(type.rootCount - 1U));
      if (type.extensible) out_.bits(0, 1);
      constrained(item.number, range);
    } else if (type.kind == Kind::kInteger) {
      // The limits are the telling values.
      const int64_t any = std::uniform_int_distribution<int64_t>(range.lower, range.upper)(random_);
      const int64_t choices[] = {range.lower, range.upper, any, any};
      const bool beyond = type.extensible && oneIn(4);
      item.number = beyond ? range.upper + 1 + static_cast<int64_t>(upTo(100000)) : choices[upTo(3)];
      if (type.extensible) out_.bits(beyond, 1);
      constrained(item.number, beyond ? Range() : range);
    }
    items_.push_back(item);
  }

  void string(Item item) {
    const Type& type = *item.type;
    const size_t least = static_cast<size_t>(type.range.lower);
    const size_t most = static_cast<size_t>(std::min(type.range.upper, type.range.lower + 40));
    size_t length = least + upTo(most - least);
    // Open types and object identifiers are never empty; fragments are rare.
    if (length == 0 && (type.kind == Kind::kOpenType || type.kind == Kind::kObjectIdentifier)) length = 1;
    if (type.range.upper == asn1::kMax && item.depth < 3 && oneIn(50)) length = kFragment + upTo(200);
    for (size_t i = octetsFor(type, length); i > 0; --i) {
      const bool any = type.alphabet == nullptr;
      item.octets.push_back(
          static_cast<uint8_t>(any ? upTo(255) : type.alphabet->characters[upTo(type.alphabet->size - 1U)]));
    }
    clearUnusedBits(type, length, item.octets);
    item.number = static_cast<int64_t>(length);
    items_.push_back(item);

    if (type.range.upper >= 65536) return fragments(length, [&](size_t i) { unit(item, i); });
    const bool fixed = type.range.lower == type.range.upper;
    if (!fixed) constrained(item.number, type.range);
    if (fixed ? length * type.unit > 16 : length > 0) out_.align();
    for (size_t i = 0; i < length; ++i) unit(item, i);
  }

  void unit(const Item& item, size_t i) {
    const Type& type = *item.type;
    if (type.unit == 1) return out_.bits(item.octets[i / 8] >> (7 - i % 8), 1);
    if (type.unit == 8) return out_.bits(item.octets[i], 8);
    if (type.unit == 16) return out_.bits(item.octets[2 * i] << 8 | item.octets[2 * i + 1], 16);
    const std::string_view characters(type.alphabet->characters, type.alphabet->size);
    out_.bits(characters.find(static_cast<char>(item.octets[i])), type.unit);
  }

  void sequence(const Item& item) {
    const Type& type = *item.type;
    items_.push_back(item);
    std::vector<bool> present(type.fieldCount);
    for (unsigned i = 0; i < type.fieldCount; ++i) {
      const bool mayMiss = i >= type.rootCount || type.fields[i].presence == asn1::kOptional;
      present[i] = !mayMiss || (item.depth <= kDeep && (leadsToNew(type, i) || upTo(item.depth) < 2));
      if (present[i]) made_.insert({&type, i});
    }
    const auto additions = present.begin() + type.rootCount;
    const bool extended = type.extensible && (future_ || std::find(additions, present.end(), true) != present.end());
    if (type.extensible) out_.bits(extended, 1);
    for (unsigned i = 0; i < type.rootCount; ++i) {
      if (type.fields[i].presence == asn1::kOptional) out_.bits(present[i], 1);
    }
    for (unsigned i = 0; i < type.rootCount; ++i) {
      if (present[i]) value(*type.fields[i].type, item.depth + 1, i);
    }
    if (!extended) return;
    // Of the future additions the first is there, and the last, which makes the long form necessary.
    if (future_) {
      present.resize(type.fieldCount + 70U);
      present[type.fieldCount] = true;
      present.back() = true;
    }
    const size_t additionCount = present.size() - type.rootCount;
    if (future_) {
      out_.bits(1, 1);
      length(additionCount);
    } else {
      out_.bits(additionCount - 1, 7);
    }
    for (size_t i = type.rootCount; i < present.size(); ++i) out_.bits(present[i], 1);
    for (unsigned i = type.rootCount; i < present.size(); ++i) {
      if (!present[i]) continue;
      if (i < type.fieldCount) {
        addition(*type.fields[i].type, item.depth + 1, i);
      } else {
        openType(Octets(i, 0xA5));
      }
    }
  }

  void sequenceOf(Item item) {
    const Type& type = *item.type;
    const int64_t count = type.range.lower + static_cast<int64_t>(upTo(item.depth > kDeep ? 0 : 2));
    item.number = std::min(count, type.range.upper);
    items_.push_back(item);
    if (type.range.upper < 65536) {
      constrained(item.number, type.range);
    } else {
      length(static_cast<size_t>(item.number));
    }
    for (int64_t i = 0; i < item.number; ++i) value(*type.element, item.depth + 1, 0);
  }

  void choice(Item item) {
    const Type& type = *item.type;
    const unsigned tag = alternative(type, item.depth);
    item.number = tag;
    items_.push_back(item);
    if (tag < type.fieldCount) made_.insert({&type, tag});
    const bool beyond = tag >= type.rootCount;
    if (type.extensible) out_.bits(beyond, 1);
    if (!beyond) {
      constrained(tag, Range(0, type.rootCount - 1));
      return value(*type.fields[tag].type, item.depth + 1, 0);
    }
    out_.bits(tag - type.rootCount, 7);
    if (tag < type.fieldCount) return addition(*type.fields[tag].type, item.depth + 1, 0);
    // Of an alternative nobody knows the octets are the value.
    out_.align();
    string({&asn1::OpenType, item.depth + 1, 0, 0, {}});
  }

  unsigned alternative(const Type& type, unsigned depth) {
    if (depth > kDeep) return 0;  // never one that leads back
    const unsigned first = static_cast<unsigned>(upTo(type.fieldCount - 1U));
    for (unsigned i = 0; i < type.fieldCount; ++i) {
      const unsigned tag = (first + i) % type.fieldCount;
      if (leadsToNew(type, tag)) return tag;
    }
    // Now and then one of the future.
    return type.extensible && oneIn(20) ? type.fieldCount + 5U : first;
  }

  void addition(const Type& type, unsigned depth, unsigned index) {
    const BitWriter outer = std::exchange(out_, BitWriter());
    value(type, depth, index);
    Octets octets = std::exchange(out_, outer).finish();
    if (future_) octets.insert(octets.end(), {0xDE, 0xAD});
    openType(octets);
  }

  void openType(const Octets& octets) {
    fragments(octets.size(), [&](size_t i) { out_.bits(octets[i], 8); });
  }

  // X.691, 10.5, 10.7 and 10.8
  void constrained(int64_t number, const Range& range) {
    const uint64_t offset = static_cast<uint64_t>(number) - static_cast<uint64_t>(range.lower);
    const uint64_t span = static_cast<uint64_t>(range.upper) - static_cast<uint64_t>(range.lower);
    if (range.lower == asn1::kMin) {
      unsigned octets = 1;
      while (octets < 8 && number >> (octets * 8 - 1) != (number < 0 ? -1 : 0)) ++octets;
      length(octets);
      out_.bits(static_cast<uint64_t>(number), octets * 8);
    } else if (range.upper == asn1::kMax) {
      length(octetsOf(offset));
      out_.bits(offset, octetsOf(offset) * 8);
    } else if (span < 255) {
      unsigned bits = 0;
      while (span >> bits != 0) ++bits;
      out_.bits(offset, bits);
    } else if (span < 65536) {
      out_.align();
      out_.bits(offset, span == 255 ? 8 : 16);
    } else {
      constrained(octetsOf(offset), Range(1, octetsOf(span)));
      out_.align();
      out_.bits(offset, octetsOf(offset) * 8);
    }
  }

  // X.691, 10.9.3.5 to 10.9.3.8
  void length(size_t count) {
    out_.align();
    if (count < 128) return out_.bits(count, 8);
    out_.bits(0x8000 | count, 16);
  }
  void fragments(size_t count, const auto& put) {
    size_t done = 0;
    while (count - done >= kFragment) {
      const size_t multiple = std::min<size_t>((count - done) / kFragment, 4);
      out_.align();
      out_.bits(0xC0 | multiple, 8);
      for (const size_t end = done + multiple * kFragment; done < end; ++done) put(done);
    }
    length(count - done);
    for (; done < count; ++done) put(done);
  }

  std::mt19937 random_{20};
  bool future_ = false;
  BitWriter out_;
  std::vector<Item> items_;
  std::set<Entry> made_;
  std::set<const Type*> complete_;  // everything below them is made
  std::map<const Type*, std::set<Entry>> reachable_;
};

void roundTrips(const Type& root, const char* name) {
  RandomMessages messages;
  const auto arena = std::make_unique<asn1::Arena>();
  constexpr size_t kMessages = 4000;
  for (size_t i = 0; i < kMessages; ++i) {
    SCOPED_TRACE(std::string(name) + " message " + std::to_string(i));
    messages.make(root, i % 4 == 0);
    const Octets octets = messages.octets();
    PPER_Stream stream(PBYTEArray(octets.data(), octets.size()));
    const Value& decoded = asn1::decode(root, stream, *arena);
    ASSERT_FALSE(stream.failed());
    std::vector<Item> items;
    appendItems(decoded, 0, items);
    ASSERT_TRUE(items == messages.items());
    // Complete means complete: without its last octet it is none.
    PPER_Stream cut(PBYTEArray(octets.data(), octets.size() - 1));
    asn1::decode(root, cut, *arena);
    EXPECT_TRUE(cut.failed());
  }
  const auto all = fieldsOf(root);
  std::cout << name << ": " << kMessages << " messages, " << messages.made().size() << " of " << all.size()
            << " components and alternatives\n";
  EXPECT_EQ(messages.made(), all);
}

TEST(RoundTrip, H245) {
  roundTrips(asn1::h245::MultimediaSystemControlMessage, "H.245");
}

TEST(RoundTrip, H225) {
  roundTrips(asn1::h225::H323_UserInformation, "H.225.0");
}

}  // namespace
