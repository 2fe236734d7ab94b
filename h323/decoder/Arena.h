#pragma once

#include <cstddef>
#include <cstdint>

#include "h323/schema/Schema.h"

namespace asn1 {

// A decoded value. What it is, its type says; the values in it hang below it as a list.
struct Value {
  const Type* type;   // null: absent
  const Value* next;  // behind it in the same SEQUENCE, SEQUENCE OF
  union {
    std::int64_t number;         // BOOLEAN, INTEGER, ENUMERATED (the index of the name)
    const std::uint8_t* octets;  // strings, OBJECT IDENTIFIER, open type
    const Value* child;          // SEQUENCE, SEQUENCE OF: the first one or null; CHOICE: the chosen one
  };
  // Strings: characters, octets or bits; CHOICE: the tag; SEQUENCE OF: the entries.
  std::uint32_t length;
  std::uint16_t index;  // in a SEQUENCE: which component it is
};

// A value that is not there.
inline constexpr Value kAbsent{nullptr, nullptr, {0}, 0, 0};

// Where the values of one message live. It is made once, as large as a message may get, and used for one message after
// the other; memory that no message has needed yet is never touched.
class Arena {
 public:
  // Messages with more values than this do not decode. The largest ones seen, capability sets, have a few hundred.
  static constexpr std::size_t kMaxValues = 4096;
  // Limit of the octets that cannot be views of the packet: strings of characters in 4 bits, strings that begin in the
  // middle of an octet, strings in fragments.
  static constexpr std::size_t kMaxCopied = 65536;

  void clear() { usedValues_ = usedOctets_ = 0; }

  // Null when there is no room; not initialised otherwise.
  Value* newValue() { return usedValues_ == kMaxValues ? nullptr : &values_[usedValues_++]; }
  std::uint8_t* newOctets(std::size_t count) {
    if (count > kMaxCopied - usedOctets_) return nullptr;
    usedOctets_ += count;
    return octets_ + usedOctets_ - count;
  }

 private:
  std::size_t usedValues_ = 0;
  std::size_t usedOctets_ = 0;
  Value values_[kMaxValues];
  std::uint8_t octets_[kMaxCopied];
};

}  // namespace asn1
