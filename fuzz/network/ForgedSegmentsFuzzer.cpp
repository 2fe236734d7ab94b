// A conversation over TCP into which a stranger forges SYNs, segments and acknowledgements, all beyond the expected
// octets. No FIN and no RST: with the right number these end the stream, and the next message begins another one.
// Input: the nature of the conversation in one octet, then events of six octets: kind, place (2), distance, payload
// (2). After the stranger has stopped, the first messages may be lost, because he has replaced their octets. Of the
// others a few may be lost, at places where his octets end; all the rest must be found.

#include <algorithm>

#include "support/Conversation.h"
#include "support/Require.h"

using namespace voip;

namespace {

constexpr int kMessages = 24, kReplaced = 12, kMostLost = 2;
constexpr std::size_t kEvent = 6;
const std::string kPayloads[] = {
    "x", "OPTIONS sip:a@b SIP/2.0\r\nl: 16000000\r\n\r\n", {"\3\0\xFF\xFF", 4}, "GET / HTTP/1.1\r\n\r\n"};

/// Returns a number that the stranger uses: near the expected one, near his last one, or anywhere.
std::uint32_t numberOf(const Conversation& call, int side, const std::uint8_t* event, std::uint32_t last) {
  const auto distance = static_cast<std::int16_t>(event[1] << 8 | event[2]);
  switch (event[0] >> 6) {
    case 0:
      return call.next(side) + 20'000 + static_cast<std::uint16_t>(distance) * (1U << (event[3] & 3));
    case 1:
      return last;
    case 2:
      return call.next(1 - side) + static_cast<std::uint32_t>(distance);
    default:
      return static_cast<std::uint32_t>(distance) << 16 | event[3];
  }
}

std::string payloadOf(const std::uint8_t* event) {
  std::string payload = kPayloads[event[4] & 3];
  payload.resize(std::max<std::size_t>(1, payload.size() + event[5] * (event[4] >> 6)), 'x');
  return payload;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  NetworkLimits limits;
  limits.streams = 8;
  limits.earlyMemory = 16'384;
  Conversation call({(data[0] & 1) != 0, (data[0] & 2) != 0, (data[0] & 4) != 0}, limits);
  std::uint32_t last[2] = {};
  call.talk(2);
  for (std::size_t at = 1; at + kEvent <= size && at < 200 * kEvent; at += kEvent) {
    const std::uint8_t* event = data + at;
    const int side = event[0] & 1;
    const std::uint32_t number = numberOf(call, side, event, last[side]);
    switch (event[0] >> 1 & 7) {
      case 0:
        call.say(side);
        break;
      case 1:
        call.pause(event[1] * 100'000);
        break;
      case 2:
        call.acknowledge(side, number, event[3] == 0 ? number : call.next(1 - side));
        break;
      case 3:
        call.forge(side, number, "", Conversation::kSyn);
        last[side] = number + 1;
        break;
      default: {
        const std::string payload = payloadOf(event);
        call.forge(side, number, payload, 0, event[4] >> 3 & 1 ? event[5] * 200 : 0);
        last[side] = number + static_cast<std::uint32_t>(payload.size());
      }
    }
  }
  for (int i = 0; i < 4; ++i) call.pause(3'000'000);  // early data is passed on, so that it replaces nothing later
  const int before[2] = {call.said(0), call.said(1)};
  call.talk(kMessages);
  for (int i = 0; i < 4; ++i) call.pause(3'000'000);  // each passes on a limited number of segments
  for (const int side : {0, 1}) {
    int lost = 0;
    for (int i = before[side] + kReplaced; i < call.said(side); ++i) lost += call.found(side, i) == 0;
    require(lost <= kMostLost);
  }
  return 0;
}
