// Any octets as Q.931: decoded, read and printed.

#include <cstddef>
#include <cstdint>

#include "Q931.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Q931 message;
  message.Decode(PBYTEArray(data, size));
  PStringStream text;
  text << message.GetCallingPartyNumber() << message.GetCalledPartyNumber() << message;
  return 0;
}
