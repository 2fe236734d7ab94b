// Any octets as the user-user information of H.225.0: decoded, read the way calls are, and printed.

#include <cstddef>
#include <cstdint>

#include "H225.h"
#include "OpalGloballyUniqueID.h"

namespace {

void readAliases(std::ostream& text, const std::optional<H225_ArrayOf_AliasAddress>& aliases) {
  if (!aliases) return;
  for (const H225_AliasAddress& alias : *aliases) text << H323GetAliasAddressString(alias);
}

void readList(std::ostream& text, const std::optional<H225_ArrayOf_PASN_OctetString>& list) {
  if (!list) return;
  for (size_t i = 0; i < list->GetSize(); ++i) text << (*list)[i];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static H225_H323_UserInformation information;
  PStringStream text;
  PPER_Stream stream(PBYTEArray(data, size));
  information.Decode(stream);
  const auto pdu = information.h323_uu_pdu();
  const auto body = pdu.h323_message_body();
  if (const auto setup = body.setup()) {
    readAliases(text, setup->sourceAddress());
    readAliases(text, setup->destinationAddress());
    readList(text, setup->fastStart());
    if (setup->h245Address()) text << *setup->h245Address();
    if (setup->callIdentifier()) text << OpalGloballyUniqueID(setup->callIdentifier()->guid()).AsString();
  }
  readList(text, pdu.h245Control());
  text << body.GetTagName() << information;
  return 0;
}
