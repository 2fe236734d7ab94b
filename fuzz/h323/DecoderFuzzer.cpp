// Any octets as each of the messages there are: decoded and printed. How calls and media channels are read is the
// business of the parser's fuzzer.

#include <cstdint>

#include "h323/messages/H225.h"
#include "h323/messages/H245.h"
#include "h323/messages/Q931.h"

namespace {

// As in use: one object for all messages.
template <class Message>
void decode(const PBYTEArray& octets, std::ostream& text) {
  static Message message;
  PPER_Stream stream(octets);
  message.Decode(stream);
  text << message;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const PBYTEArray octets(data, size);
  PStringStream text;
  decode<H245_MultimediaSystemControlMessage>(octets, text);
  decode<H245_OpenLogicalChannel>(octets, text);
  decode<H225_H323_UserInformation>(octets, text);
  static Q931 q931;
  q931.Decode(octets);
  text << q931.GetCallingPartyNumber() << q931.GetCalledPartyNumber() << q931;
  return 0;
}
