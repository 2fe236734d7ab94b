#include "signalling/MediaDescription.h"

#include "base/IpAddress.h"
#include "base/Logger.h"
#include "h323/base/PIPSocket.h"

namespace voip {

namespace {

void appendCodec(const char* direction, const H245_DataType& dataType, PString& text) {
  const auto audio = dataType.audioData();
  if (!audio) return;
  const unsigned tag = audio->GetTag();
  // The recorder reads the frames per packet of G.711 at 64 kbit/s only; the number of all other codecs is 0.
  const bool isG711 = tag == H245_AudioCapability::e_g711Alaw64k || tag == H245_AudioCapability::e_g711Ulaw64k;
  text += direction;
  text += audio->GetTagName();
  text += ' ';
  text += PString(isG711 ? audio->integer() : 0);
  text += ',';
}

void appendAddress(const char* protocol, const PString& address, unsigned port, PString& text) {
  text += protocol;
  text += address;
  text += ' ';
  text += PString(port);
}

void appendAddress(const char* channel, const char* protocol, const H245_TransportAddress& address,
                   AddressFamilies families, PString& text) {
  const auto unicast = address.unicastAddress();
  if (!unicast) {
    logger().debug(channel, " Address is not Unicast. ", address.GetTagName(), " is not supported");
    return;
  }
  const auto ip6Address = unicast->iP6Address();
  if (ip6Address && families == AddressFamilies::kBoth) {
    appendAddress(protocol, ipv6Text(ip6Address->network()), ip6Address->tsapIdentifier(), text);
    return;
  }
  const auto ipAddress = unicast->iPAddress();
  if (!ipAddress) {
    logger().debug(channel, " address is not IPv4. ", unicast->GetTagName(), " is not supported");
    return;
  }
  appendAddress(protocol, PIPSocket::Address(ipAddress->network()).AsString(), ipAddress->tsapIdentifier(), text);
}

}  // namespace

PString ipv6Text(const PASN_OctetString& octets) {
  return IpAddress::read(octets.GetValue().GetPointer()).bracketed().c_str();
}

void appendLogicalChannel(const H245_OpenLogicalChannelView& channel, AddressFamilies families, PString& text) {
  text += "m:";
  text += PString(channel.forwardLogicalChannelNumber());
  text += ':';
  appendForwardChannel(channel.forwardLogicalChannelParameters(), families, text);
  if (const auto reverse = channel.reverseLogicalChannelParameters()) appendReverseChannel(*reverse, families, text);
}

void appendAcknowledgedAddresses(const H245_OpenLogicalChannelAck& acknowledgement, AddressFamilies families,
                                 PString& text) {
  if (const auto forward = acknowledgement.forwardMultiplexAckParameters()) {
    if (const auto parameters = forward->h2250LogicalChannelAckParameters())
      appendMediaChannel(*parameters, families, text);
  }
  const auto reverse = acknowledgement.reverseLogicalChannelParameters();
  if (const auto multiplex = reverse ? reverse->multiplexParameters() : std::nullopt) {
    if (const auto parameters = multiplex->h2250LogicalChannelParameters())
      appendMediaChannel(*parameters, families, text);
  }
}

void appendForwardChannel(const H245_OpenLogicalChannel_forwardLogicalChannelParameters& channel,
                          AddressFamilies families, PString& text) {
  appendCodec("fcodec:", channel.dataType(), text);
  if (const auto parameters = channel.multiplexParameters().h2250LogicalChannelParameters()) {
    appendMediaChannel(*parameters, families, text);
  }
}

void appendReverseChannel(const H245_OpenLogicalChannel_reverseLogicalChannelParameters& channel,
                          AddressFamilies families, PString& text) {
  appendCodec("rcodec:", channel.dataType(), text);
  if (const auto multiplex = channel.multiplexParameters()) {
    if (const auto parameters = multiplex->h2250LogicalChannelParameters())
      appendMediaChannel(*parameters, families, text);
  }
}

void appendMediaChannel(const H245_H2250LogicalChannelParameters& parameters, AddressFamilies families, PString& text) {
  if (const auto address = parameters.mediaChannel()) appendMediaAddress(*address, families, text);
}

void appendMediaChannel(const H245_H2250LogicalChannelAckParameters& parameters, AddressFamilies families,
                        PString& text) {
  if (const auto address = parameters.mediaChannel()) appendMediaAddress(*address, families, text);
}

void appendMediaAddress(const H245_TransportAddress& address, AddressFamilies families, PString& text) {
  appendAddress("MediaChannel", "rtp:", address, families, text);
}

void appendMediaControlAddress(const H245_TransportAddress& address, AddressFamilies families, PString& text) {
  appendAddress("MediaControlChannel", "rtcp:", address, families, text);
}

void appendFastStart(const H225_ArrayOf_PASN_OctetString& elements, H245_OpenLogicalChannel& channel,
                     asn1::Effort& effort, AddressFamilies families, PString& text) {
  for (const PASN_OctetString& element : elements) {
    const std::uint32_t before = effort.left();
    if (before == 0) break;
    PPER_Stream stream(element.GetValue(), effort);
    if (!channel.Decode(stream)) {
      logger().debug("H323 fast-start parameter decode failed");
      continue;
    }
    appendLogicalChannel(channel, families, text);
    text += '\n';
    effort.chargeReserve(before - effort.left());
  }
}

}  // namespace voip
