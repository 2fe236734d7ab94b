#include "h323/messages/H245.h"

unsigned H245_AudioCapability::integer() const {
  const asn1::Value& value = chosen();
  const bool isInteger = value.type != nullptr && value.type->kind == asn1::Kind::kInteger;
  return isInteger ? static_cast<unsigned>(value.number) : 0;
}

std::optional<PString> H245_UserInputIndication::alphanumeric() const {
  if (GetTag() != e_alphanumeric) return std::nullopt;
  return asn1::text(chosen());
}
