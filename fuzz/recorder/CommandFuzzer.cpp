// The recorder's command stream, in arbitrary splits. Input: what comes at once, each piece behind its length in two
// bytes; a piece of no bytes ends the stream, and another one begins. What is decoded must be the whole commands of
// each stream, and no more.

#include <cstdlib>

#include "recorder/CommandStream.h"
#include "support/Split.h"

using namespace voip;

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static CommandStream stream;  // as it was left: a restart must do
  stream.restart();
  const SnifferRequest untouched(0xFFFF, 0xFFFFFFFF, 0xFFFF);  // a code that no byte holds
  Bytes pending;
  for (Split pieces(data, size); pieces.more();) {
    const Bytes piece = pieces.next();
    if (piece.empty()) {
      stream.restart();
      pending.clear();
    }
    append(pending, piece);
    for (std::size_t at = 0; at < piece.size();) {
      const std::size_t more = std::min(stream.room(), piece.size() - at);
      require(more > 0);
      stream.append({piece.data() + at, more});
      at += more;
      for (SnifferRequest request = untouched; stream.take(request); request = untouched) {
        SnifferRequest expected = SnifferRequest::fromWire(pending.data());
        if (expected.request == 3) expected = {3, untouched.rtpAddr, untouched.rtpPort};
        require(request == expected);
        pending.erase(pending.begin(), pending.begin() + SnifferRequest::kWireLength);
      }
    }
    require(stream.waiting() == pending.size() && pending.size() < SnifferRequest::kWireLength);
  }
  return 0;
}
