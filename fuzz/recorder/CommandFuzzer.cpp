// The recorder's command stream, split anywhere. Input: the pieces of the stream, as Split cuts them; an empty piece
// ends the stream and begins another. The decoder must return exactly the whole commands of each stream.

#include "recorder/CommandStream.h"
#include "support/Require.h"
#include "support/Split.h"

using namespace voip;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static CommandStream stream;  // in any state: restart() must discard it
  stream.restart();
  const SnifferRequest untouched(0xFFFF, 0xFFFFFFFF, 0xFFFF);  // a code that is longer than a byte
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
