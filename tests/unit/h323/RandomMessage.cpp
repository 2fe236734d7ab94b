#include "RandomMessage.h"

#include <algorithm>
#include <functional>

using asn1::Field;
using asn1::Kind;
using asn1::Range;
using asn1::Type;

namespace {

bool isString(Kind kind) {
  return kind == Kind::kBitString || kind == Kind::kOctetString || kind == Kind::kCharacterString ||
         kind == Kind::kBmpString || kind == Kind::kObjectIdentifier || kind == Kind::kOpenType;
}

// How deep the shallowest value of a type is.
unsigned leastDepth(const Type& type, unsigned limit) {
  static std::map<std::pair<const Type*, unsigned>, unsigned> known;
  if (limit == 0) return 100;
  if (const auto found = known.find({&type, limit}); found != known.end()) return found->second;
  unsigned least = 0;
  if (type.kind == Kind::kChoice) {
    least = 100;
    for (unsigned i = 0; i < type.fieldCount; ++i) least = std::min(least, leastDepth(*type.fields[i].type, limit - 1));
    ++least;
  } else if (type.kind == Kind::kSequence) {
    for (unsigned i = 0; i < type.rootCount; ++i) {
      if (type.fields[i].presence == asn1::kOptional) continue;
      least = std::max(least, leastDepth(*type.fields[i].type, limit - 1) + 1);
    }
  } else if (type.kind == Kind::kSequenceOf && type.range.lower > 0) {
    least = leastDepth(*type.element, limit - 1) + 1;
  }
  return known[{&type, limit}] = least;
}

constexpr unsigned kDeep = 18;

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
  std::vector<uint8_t> finish() const { return octets_.empty() ? std::vector<uint8_t>(1) : octets_; }

 private:
  std::vector<uint8_t> octets_;
  size_t used_ = 0;
};

class Encoder {
 public:
  explicit Encoder(bool future) : future_(future) {}

  void encode(const RandomValue& value) {
    const Type& type = *value.type;
    if (isString(type.kind)) return string(value);
    switch (type.kind) {
      case Kind::kBoolean:
        return out_.bits(value.number, 1);
      case Kind::kInteger: {
        const bool beyond = type.extensible && (value.number < type.range.lower || value.number > type.range.upper);
        if (type.extensible) out_.bits(beyond, 1);
        return beyond ? unconstrained(value.number) : number(value.number, type.range);
      }
      case Kind::kEnumerated:
        if (type.extensible) out_.bits(0, 1);
        return number(value.number, type.range);
      case Kind::kSequence:
        return sequence(value);
      case Kind::kSequenceOf:
        if (type.range.upper < 65536) {
          number(static_cast<int64_t>(value.length), type.range);
        } else {
          length(value.length);
        }
        for (const RandomValue& entry : value.children) encode(entry);
        return;
      case Kind::kChoice:
        return choice(value);
      default:
        return;
    }
  }
  std::vector<uint8_t> finish() const { return out_.finish(); }

 private:
  void number(int64_t value, const Range& range) {
    const uint64_t offset = static_cast<uint64_t>(value) - static_cast<uint64_t>(range.lower);
    if (range.lower == asn1::kMin) return unconstrained(value);
    if (range.upper == asn1::kMax) {
      const unsigned octets = octetsOf(offset);
      length(octets);
      return out_.bits(offset, octets * 8);
    }
    const uint64_t count = static_cast<uint64_t>(range.upper - range.lower) + 1;
    if (count < 256) return out_.bits(offset, bitsFor(count));
    if (count == 256) {
      out_.align();
      return out_.bits(offset, 8);
    }
    if (count <= 65536) {
      out_.align();
      return out_.bits(offset, 16);
    }
    const unsigned octets = octetsOf(offset);
    number(octets, Range(1, octetsOf(count - 1)));
    out_.align();
    out_.bits(offset, octets * 8);
  }

  void unconstrained(int64_t value) {
    unsigned octets = 1;
    while (octets < 8 && (value < -(int64_t{1} << (octets * 8 - 1)) || value >= int64_t{1} << (octets * 8 - 1)))
      ++octets;
    length(octets);
    out_.bits(static_cast<uint64_t>(value), octets * 8);
  }

  static unsigned octetsOf(uint64_t value) { return value < 256 ? 1 : 1 + octetsOf(value >> 8); }
  static unsigned bitsFor(uint64_t count) {
    unsigned bits = 0;
    while (uint64_t{1} << bits < count) ++bits;
    return bits;
  }

  void length(size_t count) {
    out_.align();
    if (count < 128) return out_.bits(count, 8);
    out_.bits(0x8000 | count, 16);
  }

  void small(size_t value) {
    out_.bits(value > 63, 1);
    if (value <= 63) return out_.bits(value, 6);
    length(octetsOf(value));
    out_.bits(value, octetsOf(value) * 8);
  }

  void unit(const RandomValue& value, size_t index) {
    const Type& type = *value.type;
    if (type.kind == Kind::kBitString) return out_.bits(value.octets[index / 8] >> (7 - index % 8), 1);
    if (type.kind == Kind::kBmpString) {
      out_.bits(value.octets[2 * index], 8);
      return out_.bits(value.octets[2 * index + 1], 8);
    }
    if (type.unit == 8) return out_.bits(value.octets[index], 8);
    const std::string_view characters(type.alphabet->characters, type.alphabet->size);
    out_.bits(characters.find(static_cast<char>(value.octets[index])), type.unit);
  }

  void string(const RandomValue& value) {
    const Range& size = value.type->range;
    size_t done = 0;
    if (size.upper < 65536) {
      const bool fixed = size.lower == size.upper;
      if (!fixed) number(static_cast<int64_t>(value.length), size);
      if (fixed ? value.length * value.type->unit > 16 : value.length > 0) out_.align();
    } else {
      while (value.length - done >= 16384) {
        const size_t fragments = std::min<size_t>((value.length - done) / 16384, 4);
        out_.align();
        out_.bits(0xC0 | fragments, 8);
        for (const size_t end = done + fragments * 16384; done < end; ++done) unit(value, done);
      }
      length(value.length - done);
    }
    for (; done < value.length; ++done) unit(value, done);
  }

  void openType(std::vector<uint8_t> octets) {
    size_t done = 0;
    while (octets.size() - done >= 16384) {
      out_.bits(0xC1, 8);
      for (const size_t end = done + 16384; done < end; ++done) out_.bits(octets[done], 8);
    }
    length(octets.size() - done);
    for (; done < octets.size(); ++done) out_.bits(octets[done], 8);
  }

  void addition(const RandomValue& value) {
    Encoder inner(future_);
    inner.encode(value);
    std::vector<uint8_t> octets = inner.finish();
    if (future_) octets.insert(octets.end(), {0xDE, 0xAD});
    out_.align();
    openType(octets);
  }

  void sequence(const RandomValue& value) {
    const Type& type = *value.type;
    std::vector<const RandomValue*> fields(type.fieldCount);
    bool extended = type.extensible && future_;
    for (const RandomValue& child : value.children) {
      fields[child.index] = &child;
      extended = extended || child.index >= type.rootCount;
    }
    if (type.extensible) out_.bits(extended, 1);
    for (unsigned i = 0; i < type.rootCount; ++i) {
      if (type.fields[i].presence == asn1::kOptional) out_.bits(fields[i] != nullptr, 1);
    }
    for (unsigned i = 0; i < type.rootCount; ++i) {
      if (fields[i] != nullptr) encode(*fields[i]);
    }
    if (!extended) return;
    // Of the future additions the first is there, the second is not, and the last makes the long form necessary.
    const size_t additions = type.fieldCount - type.rootCount + (future_ ? 70 : 0);
    out_.bits(additions > 64, 1);
    if (additions > 64) {
      length(additions);
    } else {
      out_.bits(additions - 1, 6);
    }
    const auto isThere = [&](size_t i) {
      const size_t known = type.fieldCount - type.rootCount;
      return i < known ? fields[type.rootCount + i] != nullptr : i == known || i == additions - 1;
    };
    for (size_t i = 0; i < additions; ++i) out_.bits(isThere(i), 1);
    for (size_t i = 0; i < additions; ++i) {
      if (!isThere(i)) continue;
      if (type.rootCount + i < type.fieldCount) {
        addition(*fields[type.rootCount + i]);
      } else {
        out_.align();
        openType(std::vector<uint8_t>(3 + i, 0xA5));
      }
    }
  }

  void choice(const RandomValue& value) {
    const Type& type = *value.type;
    const bool beyond = value.length >= type.rootCount;
    if (type.extensible) out_.bits(beyond, 1);
    if (!beyond) {
      number(static_cast<int64_t>(value.length), Range(0, type.rootCount - 1));
      return encode(value.children.front());
    }
    small(value.length - type.rootCount);
    if (value.length < type.fieldCount) return addition(value.children.front());
    out_.align();
    openType(value.children.front().octets);
  }

  bool future_;
  BitWriter out_;
};

}  // namespace

RandomValue RandomValues::make(const Type& type, unsigned depth) {
  RandomValue value;
  value.type = &type;
  const Range& range = type.range;
  if (isString(type.kind)) {
    makeString(value, depth);
    return value;
  }
  switch (type.kind) {
    case Kind::kBoolean:
      value.number = static_cast<int64_t>(upTo(1));
      break;
    case Kind::kEnumerated:
      value.number = static_cast<int64_t>(upTo(type.rootCount - 1));
      for (unsigned i = 0; i < type.fieldCount; ++i) made_.insert({&type, i});
      break;
    case Kind::kInteger: {
      // The limits are the telling values.
      const int64_t any = std::uniform_int_distribution<int64_t>(range.lower, range.upper)(random_);
      const int64_t choices[] = {range.lower, range.upper, any, any};
      value.number = choices[upTo(3)];
      if (type.extensible && upTo(3) == 0) value.number = range.upper + static_cast<int64_t>(upTo(100000));
      break;
    }
    case Kind::kSequence:
      makeFields(value, depth);
      break;
    case Kind::kSequenceOf:
      value.length = static_cast<size_t>(std::max<int64_t>(range.lower, 0)) + upTo(depth > kDeep ? 0 : 2);
      value.length = std::min(value.length, static_cast<size_t>(range.upper));
      for (size_t i = 0; i < value.length; ++i) value.children.push_back(make(*type.element, depth + 1));
      break;
    case Kind::kChoice:
      value.length = pickAlternative(type, depth);
      if (value.length < type.fieldCount) {
        made_.insert({&type, static_cast<unsigned>(value.length)});
        value.children.push_back(make(*type.fields[value.length].type, depth + 1));
      } else {
        value.children.push_back(make(asn1::OpenType, depth + 1));
      }
      break;
    default:
      break;
  }
  return value;
}

bool RandomValues::leadsToNew(const Type& type, unsigned field) {
  if (!made_.contains({&type, field})) return true;
  const Type& below = *type.fields[field].type;
  if (complete_.contains(&below)) return false;
  auto& reachable = reachable_[&below];
  if (reachable.empty()) reachable = fieldsOf(below);
  if (!std::ranges::includes(made_, reachable)) return true;
  complete_.insert(&below);
  return false;
}

void RandomValues::makeFields(RandomValue& value, unsigned depth) {
  const Type& type = *value.type;
  for (unsigned i = 0; i < type.fieldCount; ++i) {
    const bool mayMiss = i >= type.rootCount || type.fields[i].presence == asn1::kOptional;
    const bool wanted = leadsToNew(type, i) || upTo(depth) < 2;
    if (mayMiss && (depth > kDeep || !wanted)) continue;
    made_.insert({&type, i});
    value.children.push_back(make(*type.fields[i].type, depth + 1));
    value.children.back().index = i;
  }
}

unsigned RandomValues::pickAlternative(const Type& type, unsigned depth) {
  if (depth > kDeep) {
    const auto depthOf = [](const Field& field) { return leastDepth(*field.type, 10); };
    return static_cast<unsigned>(std::ranges::min_element(type.fields, type.fields + type.fieldCount, {}, depthOf) -
                                 type.fields);
  }
  const unsigned first = static_cast<unsigned>(upTo(type.fieldCount - 1U));
  for (unsigned i = 0; i < type.fieldCount; ++i) {
    const unsigned alternative = (first + i) % type.fieldCount;
    if (leadsToNew(type, alternative)) return alternative;
  }
  // Now and then one of the future.
  return static_cast<unsigned>(upTo(type.fieldCount - 1U) + (type.extensible && upTo(20) == 0 ? 60 : 0));
}

void RandomValues::makeString(RandomValue& value, unsigned depth) {
  const Type& type = *value.type;
  const size_t least = static_cast<size_t>(std::max<int64_t>(type.range.lower, 0));
  const size_t most = static_cast<size_t>(std::min<int64_t>(type.range.upper, static_cast<int64_t>(least) + 40));
  value.length = least + upTo(most - least);
  // Open types and object identifiers are never empty; fragments are rare.
  if (value.length == 0 && (type.kind == Kind::kOpenType || type.kind == Kind::kObjectIdentifier)) value.length = 1;
  if (type.range.upper == asn1::kMax && depth < 3 && upTo(50) == 0) value.length = 16384 + upTo(200);
  const unsigned octetBits = type.unit == 4 ? 8 : type.unit;
  value.octets.resize((value.length * octetBits + 7) / 8);
  for (uint8_t& octet : value.octets) {
    octet = static_cast<uint8_t>(upTo(255));
    if (type.alphabet != nullptr)
      octet = static_cast<uint8_t>(type.alphabet->characters[upTo(type.alphabet->size - 1U)]);
  }
}

std::vector<uint8_t> encode(const RandomValue& value, bool future) {
  Encoder encoder(future);
  encoder.encode(value);
  return encoder.finish();
}

std::set<RandomValues::Entry> fieldsOf(const Type& root) {
  std::set<RandomValues::Entry> fields;
  std::set<const Type*> seen;
  const std::function<void(const Type&)> walk = [&](const Type& type) {
    if (!seen.insert(&type).second) return;
    if (type.element != nullptr) walk(*type.element);
    for (unsigned i = 0; i < type.fieldCount; ++i) {
      fields.insert({&type, i});
      walk(*type.fields[i].type);
    }
  };
  walk(root);
  return fields;
}
