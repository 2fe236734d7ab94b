// The recorder's command stream, split anywhere, without and with IPv6 addresses. Input: the pieces of the stream, as
// Split cuts them; an empty piece ends the stream and begins another. The decoder must return exactly the whole
// commands of each stream.

#include "recorder/CommandStream.h"
#include "support/Require.h"
#include "support/Split.h"

using namespace voip;

namespace {

void decode(const std::uint8_t* data, std::size_t size, bool withIpv6) {
  static CommandStream stream;  // in any state: restart() must discard it
  stream.restart();
  stream.setIpv6(withIpv6);
  const auto isLong = [&](const Bytes& octets) { return withIpv6 && (octets[0] == 4 || octets[0] == 5); };
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
        const std::size_t length = isLong(pending) ? 19 : 7;
        require(pending.size() >= length);
        SnifferRequest expected =
            length == 19 ? SnifferRequest::fromIpv6Wire(pending.data()) : SnifferRequest::fromWire(pending.data());
        if (expected.request == 3) expected = {3, untouched.rtpAddr, untouched.rtpPort};
        require(request == expected);
        pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(length));
      }
    }
    require(stream.waiting() == pending.size());
    require(pending.empty() || pending.size() < (isLong(pending) ? 19 : 7));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  decode(data, size, false);
  decode(data, size, true);
  return 0;
}
