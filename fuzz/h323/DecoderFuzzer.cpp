// Decodes an input as each of the messages and prints it. The parser's fuzzer covers the views of calls and media
// channels.

#include <cstddef>
#include <cstdint>

#include "h323/messages/H225.h"
#include "h323/messages/H245.h"
#include "h323/messages/Q931.h"

namespace {

/// Decodes into one object for all inputs, as the parser does.
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
