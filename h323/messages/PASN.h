#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <ostream>
#include <type_traits>

#include "h323/base/PBYTEArray.h"
#include "h323/base/PString.h"
#include "h323/decoder/Arena.h"
#include "h323/decoder/PERDecoder.h"
#include "h323/decoder/PPER_Stream.h"

namespace asn1 {

/// Returns the component `index` of a SEQUENCE, kAbsent if it is absent. The index counts root components, then
/// extension components.
const Value& component(const Value& sequence, unsigned index);
/// Returns the characters of a string of 8-bit characters.
PString text(const Value& string);

std::size_t entries(const Value& list);
/// Null if the list is empty.
const Value* firstEntry(const Value& list);
/// Null after the last entry.
const Value* nextEntry(const Value& entry);

}  // namespace asn1

/// A view of a value in a decoded message, as cheap to copy as a pointer. It is valid until the message object decodes
/// again or is destroyed, or until the packet that it was decoded from is released: octets are views of that packet.
/// One thread at a time may use a message and its views.
///
/// All components of a message that failed to decode are absent. An absent value can be read like any other: numbers
/// are 0, lists, octets and texts are empty, and a choice has the tag kNoTag.
class PASN_Object {
 public:
  PASN_Object() = default;
  explicit PASN_Object(const asn1::Value& value) : value_(&value) {}

  /// Writes ASN.1 value notation for the signalling trace, with the indentation of the trace.
  friend std::ostream& operator<<(std::ostream& stream, const PASN_Object& object);

 protected:
  const asn1::Value* value_ = &asn1::kAbsent;
};

class PASN_OctetString : public PASN_Object {
 public:
  using PASN_Object::PASN_Object;
  PBYTEArray GetValue() const;
  operator PBYTEArray() const { return GetValue(); }
};

class PASN_Choice : public PASN_Object {
 public:
  static constexpr unsigned kNoTag = ~0U;

  using PASN_Object::PASN_Object;

  /// Returns the number of the alternative. The extension alternatives are numbered after the root alternatives,
  /// including those of later versions of the standard, which the decoder does not know.
  unsigned GetTag() const;
  /// Returns the ASN.1 identifier of the alternative with every "-" written "_", or "<" tag ">" if the decoder does not
  /// know the alternative.
  PString GetTagName() const;

 protected:
  const asn1::Value& chosen() const;
};

/// A field of `kType`, written as its identifier. A name that the type does not have does not compile.
template <const auto& kType>
struct PASN_Field {
  consteval PASN_Field(const char* name) : index(asn1::indexOf(kType, name)) {}
  unsigned index;
};

/// A view of a CHOICE of the type `kType`.
template <const auto& kType>
class PASN_ChoiceType : public PASN_Choice {
 public:
  using PASN_Choice::PASN_Choice;

 protected:
  static consteval unsigned tagOf(PASN_Field<kType> field) { return field.index; }

  /// Returns the chosen value if it is this alternative.
  template <class Alternative>
  std::optional<Alternative> alternative(PASN_Field<kType> field) const {
    return GetTag() == field.index ? std::optional<Alternative>(chosen()) : std::nullopt;
  }
};

/// A view of a SEQUENCE of the type `kType`.
template <const auto& kType>
class PASN_SequenceType : public PASN_Object {
 public:
  using PASN_Object::PASN_Object;

 protected:
  unsigned number(PASN_Field<kType> field) const { return static_cast<unsigned>(component(field).number); }

  template <class Component>
  Component mandatory(PASN_Field<kType> field) const {
    return Component(component(field));
  }
  template <class Component>
  std::optional<Component> optional(PASN_Field<kType> field) const {
    const asn1::Value& value = component(field);
    return value.type == nullptr ? std::nullopt : std::optional<Component>(value);
  }

 private:
  const asn1::Value& component(PASN_Field<kType> field) const { return asn1::component(*value_, field.index); }
};

/// A message of the type `kType` that is decoded separately and read as `View`.
template <class View, const auto& kType>
class PASN_Message : public View {
 public:
  PASN_Message() = default;
  PASN_Message(const PASN_Message&) = delete;
  PASN_Message& operator=(const PASN_Message&) = delete;

  /// Replaces the message by the next one in `stream`. Returns false if that does not decode; then all components are
  /// absent. Allocates nothing.
  bool Decode(PPER_Stream& stream) {
    this->value_ = &asn1::decode(kType, stream, *arena_);
    return !stream.failed();
  }

 private:
  const std::unique_ptr<asn1::Arena> arena_ = std::make_unique_for_overwrite<asn1::Arena>();
};

/// SEQUENCE OF and SET OF, for range-based for loops. Store an optional list in a variable first: the temporary in
/// `for (... : *message.list())` is destroyed before the first iteration.
template <class Element>
class PASN_Array : public PASN_Object {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Element;
    using difference_type = std::ptrdiff_t;
    using pointer = const Element*;
    using reference = Element;

    explicit Iterator(const asn1::Value* value) : value_(value) {}
    Element operator*() const { return Element(*value_); }
    Iterator& operator++();
    bool operator==(const Iterator&) const = default;

   private:
    const asn1::Value* value_;
  };

  using PASN_Object::PASN_Object;

  std::size_t GetSize() const;
  bool IsEmpty() const { return GetSize() == 0; }
  Iterator begin() const;
  Iterator end() const { return Iterator(nullptr); }
};

template <class Element>
typename PASN_Array<Element>::Iterator& PASN_Array<Element>::Iterator::operator++() {
  value_ = asn1::nextEntry(*value_);
  return *this;
}

template <class Element>
std::size_t PASN_Array<Element>::GetSize() const {
  return asn1::entries(*value_);
}

template <class Element>
typename PASN_Array<Element>::Iterator PASN_Array<Element>::begin() const {
  return Iterator(asn1::firstEntry(*value_));
}
