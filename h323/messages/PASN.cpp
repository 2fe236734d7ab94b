#include "h323/messages/PASN.h"

#include "h323/messages/Printing.h"

std::ostream& operator<<(std::ostream& stream, const PASN_Object& object) {
  asn1::print(stream, *object.value_, asn1::kRootIndent);
  return stream;
}

PBYTEArray PASN_OctetString::GetValue() const {
  return value_->type == nullptr ? PBYTEArray() : PBYTEArray(value_->octets, value_->length);
}

unsigned PASN_Choice::GetTag() const {
  return value_->type == nullptr ? kNoTag : value_->length;
}

PString PASN_Choice::GetTagName() const {
  return value_->type == nullptr ? PString() : PString(asn1::nameOf(*value_));
}

const asn1::Value& PASN_Choice::chosen() const {
  return value_->type == nullptr ? asn1::kAbsent : *value_->child;
}

namespace asn1 {

const Value& component(const Value& sequence, unsigned index) {
  if (sequence.type == nullptr) return kAbsent;
  const Value* value = sequence.child;
  while (value != nullptr && value->index < index) value = value->next;
  return value != nullptr && value->index == index ? *value : kAbsent;
}

PString text(const Value& string) {
  if (string.type == nullptr) return PString();
  return PString(std::string_view(reinterpret_cast<const char*>(string.octets), string.length));
}

std::size_t entries(const Value& list) {
  return list.type == nullptr ? 0 : list.length;
}
const Value* firstEntry(const Value& list) {
  return list.type == nullptr ? nullptr : list.child;
}
const Value* nextEntry(const Value& entry) {
  return entry.next;
}

}  // namespace asn1
