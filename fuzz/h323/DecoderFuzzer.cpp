// Any octets as each of the messages there are: decoded, read the way calls are, and printed. How media channels are
// read is the business of the parser's fuzzer.

#include <cstddef>
#include <cstdint>

#include "H225.h"
#include "H245.h"
#include "Q931.h"

namespace {

// As in use: one object for all messages.
template <class Message>
const Message& decode(const PBYTEArray& octets, std::ostream& text) {
  static Message message;
  PPER_Stream stream(octets);
  message.Decode(stream);
  text << message;
  return message;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const PBYTEArray octets(data, size);
  PStringStream text;
  decode<H245_MultimediaSystemControlMessage>(octets, text);
  decode<H245_OpenLogicalChannel>(octets, text);
  const auto pdu = decode<H225_H323_UserInformation>(octets, text).h323_uu_pdu();
  if (const auto setup = pdu.h323_message_body().setup()) {
    const auto aliases = setup->sourceAddress().value_or(H225_ArrayOf_AliasAddress());
    for (const H225_AliasAddress& alias : aliases) text << H323GetAliasAddressString(alias);
  }
  const auto control = pdu.h245Control().value_or(H225_ArrayOf_PASN_OctetString());
  for (size_t i = 0; i < control.GetSize(); ++i) text << control[i];

  static Q931 q931;
  q931.Decode(octets);
  text << q931.GetCallingPartyNumber() << q931.GetCalledPartyNumber() << q931;
  return 0;
}
