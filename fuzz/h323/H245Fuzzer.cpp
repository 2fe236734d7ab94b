// Any octets as H.245: decoded, read the way media channels are, and printed.

#include <cstddef>
#include <cstdint>

#include "H245.h"
#include "PIPSocket.h"

namespace {

void readAddress(std::ostream& text, const std::optional<H245_TransportAddress>& channel) {
  const auto unicast = channel ? channel->unicastAddress() : std::nullopt;
  const auto address = unicast ? unicast->iPAddress() : std::nullopt;
  if (address) text << PIPSocket::Address(address->network()) << address->tsapIdentifier();
}

void readChannel(std::ostream& text, const H245_OpenLogicalChannelView& channel) {
  const auto forward = channel.forwardLogicalChannelParameters();
  if (const auto audio = forward.dataType().audioData()) text << audio->GetTagName() << audio->integer();
  if (const auto parameters = forward.multiplexParameters().h2250LogicalChannelParameters()) {
    readAddress(text, parameters->mediaChannel());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // As in use: one object for all messages.
  static H245_MultimediaSystemControlMessage message;
  static H245_OpenLogicalChannel channel;
  const PBYTEArray octets(data, size);
  PStringStream text;

  PPER_Stream stream(octets);
  message.Decode(stream);
  if (message.request() && message.request()->openLogicalChannel()) {
    readChannel(text, *message.request()->openLogicalChannel());
  }
  if (message.response() && message.response()->openLogicalChannelAck()) {
    const auto forward = message.response()->openLogicalChannelAck()->forwardMultiplexAckParameters();
    const auto parameters = forward ? forward->h2250LogicalChannelAckParameters() : std::nullopt;
    if (parameters) readAddress(text, parameters->mediaChannel());
  }
  if (message.indication() && message.indication()->userInput()) {
    text << message.indication()->userInput()->alphanumeric().value_or("");
  }
  text << message;

  PPER_Stream fastStart(octets);
  channel.Decode(fastStart);
  readChannel(text, channel);
  text << channel;
  return 0;
}
