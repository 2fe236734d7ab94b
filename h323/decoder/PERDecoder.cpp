#include "h323/decoder/PERDecoder.h"

#include <algorithm>
#include <bit>

namespace asn1 {
namespace {

/// Returns `lower` plus `offset`, or kMax if the sum exceeds 64 bits.
std::int64_t clampedSum(std::int64_t lower, std::uint64_t offset) {
  return offset > static_cast<std::uint64_t>(kMax) - static_cast<std::uint64_t>(lower)
             ? kMax
             : static_cast<std::int64_t>(static_cast<std::uint64_t>(lower) + offset);
}

/// Decodes one message: walks the type and reads a value for each part of it.
class Decoder {
 public:
  Decoder(PPER_Stream& stream, Arena& arena, Effort& effort) : stream_(stream), arena_(arena), effort_(effort) {}

  /// Returns null after a failure.
  Value* decode(const Type& type);

 private:
  Value* newValue(const Type& type);
  std::int64_t constrained(const Range& range);
  std::int64_t unconstrained();
  void integer(Value& value);
  void enumerated(Value& value);
  void sequence(Value& value);
  void extensionAdditions(Value& value, const Value** link);
  void sequenceOf(Value& value);
  void choice(Value& value);
  Value* openType(const Type& type);
  void skipOpenType();
  void string(Value& value);
  const std::uint8_t* units(const Type& type, std::size_t count);
  void fragments(Value& value, std::size_t length);
  void checkCharacters(const Value& value);

  PPER_Stream& stream_;
  Arena& arena_;
  Effort& effort_;
  unsigned depth_ = 0;
};

Value* Decoder::newValue(const Type& type) {
  Value* const value = effort_.spend() ? arena_.newValue() : nullptr;
  if (value == nullptr) {
    stream_.fail();
    return nullptr;
  }
  value->type = &type;
  value->next = nullptr;
  value->number = 0;
  value->length = 0;
  value->index = 0;
  return value;
}

Value* Decoder::decode(const Type& type) {
  if (stream_.failed()) return nullptr;
  Value* const value = newValue(type);
  if (value == nullptr) return nullptr;
  switch (type.kind) {
    case Kind::kNull:
      break;
    case Kind::kBoolean:
      value->number = stream_.bit();
      break;
    case Kind::kInteger:
      integer(*value);
      break;
    case Kind::kEnumerated:
      enumerated(*value);
      break;
    case Kind::kObjectIdentifier:
    case Kind::kBitString:
    case Kind::kOctetString:
    case Kind::kCharacterString:
    case Kind::kBmpString:
    case Kind::kOpenType:
      string(*value);
      break;
    case Kind::kSequence:
    case Kind::kSequenceOf:
    case Kind::kChoice:
      if (depth_ == kMaxDepth) {
        stream_.fail();
        break;
      }
      ++depth_;
      if (type.kind == Kind::kSequence) {
        sequence(*value);
      } else if (type.kind == Kind::kChoice) {
        choice(*value);
      } else {
        sequenceOf(*value);
      }
      --depth_;
      break;
  }
  return stream_.failed() ? nullptr : value;
}

// X.691, 10.5 and 10.7
std::int64_t Decoder::constrained(const Range& range) {
  std::uint64_t offset = 0;
  switch (range.coding) {
    case Range::Coding::kSingle:
      break;
    case Range::Coding::kBits:
      offset = stream_.bits(range.width);
      break;
    case Range::Coding::kOctet:
      stream_.align();
      offset = stream_.bits(8);
      break;
    case Range::Coding::kTwoOctets:
      stream_.align();
      offset = stream_.bits(16);
      break;
    case Range::Coding::kUpToOctets:
      offset = stream_.octetNumber(stream_.bits(range.width) + 1);
      break;
    case Range::Coding::kSemiConstrained: {
      bool more = false;
      const std::size_t count = stream_.length(more);
      if (more) stream_.fail();
      offset = stream_.octetNumber(count);
      break;
    }
    case Range::Coding::kUnconstrained:
      return unconstrained();
  }
  const std::int64_t number = clampedSum(range.lower, offset);
  if (number > range.upper) stream_.fail();
  return number;
}

// X.691, 10.8
std::int64_t Decoder::unconstrained() {
  bool more = false;
  const std::size_t count = stream_.length(more);
  if (more || count == 0) stream_.fail();
  const std::uint8_t* const octets = stream_.octets(count);
  if (octets == nullptr) return 0;
  const bool negative = (octets[0] & 0x80) != 0;
  std::uint64_t number = negative ? ~std::uint64_t{0} : 0;
  for (std::size_t i = 0; i < count; ++i) {
    // The next shift may only lose copies of the sign bit.
    const std::int64_t top = static_cast<std::int64_t>(number) >> 55;
    if (top != (negative ? -1 : 0)) return negative ? kMin : kMax;
    number = number << 8 | octets[i];
  }
  return static_cast<std::int64_t>(number);
}

void Decoder::integer(Value& value) {
  const bool beyond = value.type->extensible && stream_.bit();
  value.number = beyond ? unconstrained() : constrained(value.type->range);
}

void Decoder::enumerated(Value& value) {
  if (value.type->extensible && stream_.bit()) {
    const std::uint64_t number = stream_.smallNumber();
    value.number = clampedSum(value.type->rootCount, number);
  } else {
    value.number = constrained(value.type->range);
  }
}

// X.691, 18
void Decoder::sequence(Value& value) {
  const Type& type = *value.type;
  const bool extended = type.extensible && stream_.bit();
  // Moves the first presence bit to the top.
  std::uint64_t present = type.optionalCount == 0 ? 0 : stream_.bits(type.optionalCount) << (64 - type.optionalCount);
  const Value** link = &value.child;
  *link = nullptr;
  for (std::uint16_t i = 0; i < type.rootCount; ++i) {
    const Field& field = type.fields[i];
    if (field.presence == kOptional) {
      const bool here = present >> 63 != 0;
      present <<= 1;
      if (!here) continue;
    }
    Value* const component = decode(*field.type);
    if (component == nullptr) return;
    component->index = i;
    *link = component;
    link = &component->next;
  }
  if (extended) extensionAdditions(value, link);
}

void Decoder::extensionAdditions(Value& value, const Value** link) {
  const Type& type = *value.type;
  const std::size_t count = stream_.smallLength();
  PPER_Stream presence = stream_;
  stream_.skip(count);
  for (std::size_t first = 0; first < count && !stream_.failed(); first += 32) {
    if (!effort_.spend()) return stream_.fail();
    const unsigned width = static_cast<unsigned>(std::min<std::size_t>(count - first, 32));
    std::uint64_t present = presence.bits(width) << (64 - width);
    while (present != 0) {
      const int zeros = std::countl_zero(present);
      present &= ~(std::uint64_t{1} << 63 >> zeros);
      const std::size_t index = type.rootCount + first + static_cast<std::size_t>(zeros);
      if (index >= type.fieldCount) {
        skipOpenType();
        if (stream_.failed()) return;
        continue;
      }
      Value* const component = openType(*type.fields[index].type);
      if (component == nullptr) return;
      component->index = static_cast<std::uint16_t>(index);
      *link = component;
      link = &component->next;
    }
  }
}

// X.691, 19
void Decoder::sequenceOf(Value& value) {
  const Type& type = *value.type;
  value.child = nullptr;
  bool more = false;
  const std::uint64_t count =
      type.range.upper < 65536 ? static_cast<std::uint64_t>(constrained(type.range)) : stream_.length(more);
  // A fragment has more entries than the arena holds. A longer list cannot succeed either, so it fails at once.
  if (more || count > Arena::kMaxValues) return stream_.fail();
  value.length = static_cast<std::uint32_t>(count);
  const Value** link = &value.child;
  for (std::uint64_t i = 0; i < count; ++i) {
    Value* const entry = decode(*type.element);
    if (entry == nullptr) return;
    *link = entry;
    link = &entry->next;
  }
}

// X.691, 22
void Decoder::choice(Value& value) {
  const Type& type = *value.type;
  value.child = nullptr;
  if (!type.extensible || !stream_.bit()) {
    value.length = static_cast<std::uint32_t>(constrained(type.range));
    if (!stream_.failed()) value.child = decode(*type.fields[value.length].type);
    return;
  }
  const std::uint64_t tag = type.rootCount + std::min<std::uint64_t>(stream_.smallNumber(), INT32_MAX);
  value.length = static_cast<std::uint32_t>(tag);
  value.child = tag < type.fieldCount ? openType(*type.fields[tag].type) : decode(OpenType);
}

// X.691, 10.2: a value of `type` after its length in octets. Octets that the value does not use are skipped.
Value* Decoder::openType(const Type& type) {
  const PPER_Stream before = stream_;
  bool more = false;
  const std::size_t length = stream_.length(more);
  if (more) {
    // Joins the fragments, then decodes the copy.
    stream_ = before;
    Value whole{&OpenType, nullptr, {0}, 0, 0};
    string(whole);
    if (stream_.failed()) return nullptr;
    PPER_Stream inner(PBYTEArray(whole.octets, whole.length));
    const PPER_Stream outer = stream_;
    stream_ = inner;
    Value* const value = decode(type);
    if (value != nullptr) stream_ = outer;
    return value;
  }
  const std::size_t outer = stream_.enter(length);
  Value* const value = decode(type);
  stream_.leave(outer);
  return value;
}

void Decoder::skipOpenType() {
  if (!effort_.spend()) return stream_.fail();
  bool more = true;
  while (more) stream_.skip(stream_.length(more) * 8);
}

// X.691, 15, 16, 23 and 27
void Decoder::string(Value& value) {
  const Type& type = *value.type;
  const Range& size = type.range;
  if (size.coding == Range::Coding::kSingle && size.upper < 65536) {
    const std::size_t length = static_cast<std::size_t>(size.lower);
    if (length * type.unit > 16) stream_.align();
    value.octets = units(type, length);
    value.length = static_cast<std::uint32_t>(length);
  } else if (size.upper < 65536) {
    const std::size_t length = static_cast<std::size_t>(constrained(size));
    if (length != 0) stream_.align();
    value.octets = units(type, length);
    value.length = static_cast<std::uint32_t>(length);
  } else {
    bool more = false;
    const std::size_t length = stream_.length(more);
    if (more) {
      fragments(value, length);
    } else {
      value.octets = units(type, length);
      value.length = static_cast<std::uint32_t>(length);
    }
    if (value.length < size.lower || value.length > size.upper) stream_.fail();
  }
  if (type.alphabet != nullptr) checkCharacters(value);
}

// Returns `count` characters, octets or bits as octets: a view of the packet if possible, otherwise a copy.
const std::uint8_t* Decoder::units(const Type& type, std::size_t count) {
  const std::size_t bits = count * type.unit;
  if (stream_.position() % 8 == 0 && type.unit != 4) {
    const std::uint8_t* const view = stream_.octets(bits / 8);
    stream_.skip(bits % 8);
    return view;
  }
  // Checks the length before it takes memory for the copy.
  if (bits > stream_.bitsLeft()) {
    stream_.fail();
    return nullptr;
  }
  const unsigned step = type.unit == 4 ? 4 : 8;
  std::uint8_t* const copy = arena_.newOctets((bits + step - 1) / step);
  if (copy == nullptr) {
    stream_.fail();
    return nullptr;
  }
  std::uint8_t* octet = copy;
  std::size_t left = bits;
  for (; left >= 32; left -= 32) {
    const std::uint64_t word = stream_.bits(32);
    for (unsigned shift = 32; shift > 0;)
      *octet++ = static_cast<std::uint8_t>(word >> (shift -= step) & (0xFFU >> (8 - step)));
  }
  while (left > 0) {
    const unsigned taken = static_cast<unsigned>(std::min<std::size_t>(left, step));
    *octet++ = static_cast<std::uint8_t>(stream_.bits(taken) << (step - taken));
    left -= taken;
  }
  return copy;
}

// X.691, 10.9.3.8. Every fragment but the last is a multiple of 16K units, so each ends at an octet boundary.
void Decoder::fragments(Value& value, std::size_t length) {
  const Type& type = *value.type;
  bool more = true;
  value.octets = nullptr;
  while (true) {
    const std::uint8_t* part = units(type, length);
    if (stream_.failed()) return;
    // 4-bit characters are copied already. Consecutive copies are contiguous in the arena.
    if (type.unit != 4) {
      const std::size_t size = (length * type.unit + 7) / 8;
      std::uint8_t* const copy = arena_.newOctets(size);
      if (copy == nullptr) return stream_.fail();
      std::copy_n(part, size, copy);
      part = copy;
    }
    if (value.octets == nullptr) value.octets = part;
    value.length += static_cast<std::uint32_t>(length);
    if (!more) return;
    length = stream_.length(more);
  }
}

// Replaces indices by characters and checks that all characters are in the alphabet.
void Decoder::checkCharacters(const Value& value) {
  if (stream_.failed()) return;
  const Alphabet& alphabet = *value.type->alphabet;
  if (value.type->unit == 8) {
    for (std::uint32_t i = 0; i < value.length; ++i) {
      if (!alphabet.contains(static_cast<char>(value.octets[i]))) return stream_.fail();
    }
    return;
  }
  // A string of indices is always a copy.
  std::uint8_t* const copy = const_cast<std::uint8_t*>(value.octets);
  for (std::uint32_t i = 0; i < value.length; ++i) {
    if (copy[i] >= alphabet.size) return stream_.fail();
    copy[i] = static_cast<std::uint8_t>(alphabet.characters[copy[i]]);
  }
}

}  // namespace

const Value& decode(const Type& type, PPER_Stream& stream, Arena& arena) {
  arena.clear();
  Effort own;
  Effort& effort = stream.effort() == nullptr ? own : *stream.effort();
  if (!effort.spend(Effort::kMessage)) stream.fail();
  const Value* const value = Decoder(stream, arena, effort).decode(type);
  return value == nullptr ? kAbsent : *value;
}

}  // namespace asn1
