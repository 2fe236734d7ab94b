#pragma once

#include <cstddef>
#include <cstdint>

#include "h323/schema/Schema.h"

namespace asn1 {

/// A decoded value. Its type says which of its fields are meaningful. The values that it contains are a linked list
/// that begins at `child`.
struct Value {
  const Type* type;   ///< null: the value is absent
  const Value* next;  ///< the value after this one in the same SEQUENCE or SEQUENCE OF; null for the last one
  union {
    std::int64_t number;         ///< BOOLEAN, INTEGER, ENUMERATED (the index of the name)
    const std::uint8_t* octets;  ///< strings, OBJECT IDENTIFIER, open type
    const Value* child;          ///< SEQUENCE, SEQUENCE OF: the first value or null; CHOICE: the chosen value
  };
  std::uint32_t length;  ///< strings: characters, octets or bits; CHOICE: the tag; SEQUENCE OF: the number of entries
  std::uint16_t index;   ///< of a component in its SEQUENCE
};

/// The absent value.
inline constexpr Value kAbsent{nullptr, nullptr, {0}, 0, 0};

/// The memory of the values of one message. An arena is allocated once, in the size of the largest message, and reused
/// for each further message. Pages that no message has needed yet are never touched.
class Arena {
 public:
  /// A message with more values does not decode. The largest messages seen, capability sets, have a few hundred.
  static constexpr std::size_t kMaxValues = 4096;
  /// The limit of the copied octets of a message. Strings of 4-bit characters, strings that begin in the middle of an
  /// octet and strings in fragments are copied; all others are views of the packet.
  static constexpr std::size_t kMaxCopied = 65536;

  /// Invalidates all values.
  void clear() { usedValues_ = usedOctets_ = 0; }

  /// Returns null when the arena is full. The new value is not initialised.
  Value* newValue() { return usedValues_ == kMaxValues ? nullptr : &values_[usedValues_++]; }
  /// Returns null when the arena is full. The octets are not initialised and follow those of the call before.
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
