#include "H245.h"

#include "H245Schema.h"
#include "PERDecoder.h"

namespace h245 = asn1::h245;
using asn1::indexOf;

PASN_OctetString H245_UnicastAddress_iPAddress::network() const {
  return PASN_OctetString(component(indexOf(h245::UnicastAddress_iPAddress, "network")));
}

unsigned H245_UnicastAddress_iPAddress::tsapIdentifier() const {
  return number(indexOf(h245::UnicastAddress_iPAddress, "tsapIdentifier"));
}

std::optional<H245_UnicastAddress_iPAddress> H245_UnicastAddress::iPAddress() const {
  return alternative<H245_UnicastAddress_iPAddress>(indexOf(h245::UnicastAddress, "iPAddress"));
}

std::optional<H245_UnicastAddress> H245_TransportAddress::unicastAddress() const {
  return alternative<H245_UnicastAddress>(indexOf(h245::TransportAddress, "unicastAddress"));
}

unsigned H245_AudioCapability::integer() const {
  const asn1::Value& value = chosen();
  const bool isInteger = value.type != nullptr && value.type->kind == asn1::Kind::kInteger;
  return isInteger ? static_cast<unsigned>(value.number) : 0;
}

std::optional<H245_AudioCapability> H245_DataType::audioData() const {
  return alternative<H245_AudioCapability>(indexOf(h245::DataType, "audioData"));
}

std::optional<H245_TransportAddress> H245_H2250LogicalChannelParameters::mediaChannel() const {
  return optional<H245_TransportAddress>(indexOf(h245::H2250LogicalChannelParameters, "mediaChannel"));
}

std::optional<H245_TransportAddress> H245_H2250LogicalChannelParameters::mediaControlChannel() const {
  return optional<H245_TransportAddress>(indexOf(h245::H2250LogicalChannelParameters, "mediaControlChannel"));
}

std::optional<H245_TransportAddress> H245_H2250LogicalChannelAckParameters::mediaChannel() const {
  return optional<H245_TransportAddress>(indexOf(h245::H2250LogicalChannelAckParameters, "mediaChannel"));
}

std::optional<H245_TransportAddress> H245_H2250LogicalChannelAckParameters::mediaControlChannel() const {
  return optional<H245_TransportAddress>(indexOf(h245::H2250LogicalChannelAckParameters, "mediaControlChannel"));
}

std::optional<H245_H2250LogicalChannelParameters>
H245_OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters::h2250LogicalChannelParameters() const {
  return alternative<H245_H2250LogicalChannelParameters>(indexOf(
      h245::OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters, "h2250LogicalChannelParameters"));
}

H245_DataType H245_OpenLogicalChannel_forwardLogicalChannelParameters::dataType() const {
  return H245_DataType(component(indexOf(h245::OpenLogicalChannel_forwardLogicalChannelParameters, "dataType")));
}

H245_OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters
H245_OpenLogicalChannel_forwardLogicalChannelParameters::multiplexParameters() const {
  return H245_OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters(
      component(indexOf(h245::OpenLogicalChannel_forwardLogicalChannelParameters, "multiplexParameters")));
}

std::optional<H245_H2250LogicalChannelParameters>
H245_OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters::h2250LogicalChannelParameters() const {
  return alternative<H245_H2250LogicalChannelParameters>(indexOf(
      h245::OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters, "h2250LogicalChannelParameters"));
}

H245_DataType H245_OpenLogicalChannel_reverseLogicalChannelParameters::dataType() const {
  return H245_DataType(component(indexOf(h245::OpenLogicalChannel_reverseLogicalChannelParameters, "dataType")));
}

std::optional<H245_OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters>
H245_OpenLogicalChannel_reverseLogicalChannelParameters::multiplexParameters() const {
  return optional<H245_OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters>(
      indexOf(h245::OpenLogicalChannel_reverseLogicalChannelParameters, "multiplexParameters"));
}

unsigned H245_OpenLogicalChannelView::forwardLogicalChannelNumber() const {
  return number(indexOf(h245::OpenLogicalChannel, "forwardLogicalChannelNumber"));
}

H245_OpenLogicalChannel_forwardLogicalChannelParameters H245_OpenLogicalChannelView::forwardLogicalChannelParameters()
    const {
  return H245_OpenLogicalChannel_forwardLogicalChannelParameters(
      component(indexOf(h245::OpenLogicalChannel, "forwardLogicalChannelParameters")));
}

std::optional<H245_OpenLogicalChannel_reverseLogicalChannelParameters>
H245_OpenLogicalChannelView::reverseLogicalChannelParameters() const {
  return optional<H245_OpenLogicalChannel_reverseLogicalChannelParameters>(
      indexOf(h245::OpenLogicalChannel, "reverseLogicalChannelParameters"));
}

std::optional<H245_H2250LogicalChannelParameters>
H245_OpenLogicalChannelAck_reverseLogicalChannelParameters_multiplexParameters::h2250LogicalChannelParameters() const {
  return alternative<H245_H2250LogicalChannelParameters>(
      indexOf(h245::OpenLogicalChannelAck_reverseLogicalChannelParameters_multiplexParameters,
              "h2250LogicalChannelParameters"));
}

std::optional<H245_OpenLogicalChannelAck_reverseLogicalChannelParameters_multiplexParameters>
H245_OpenLogicalChannelAck_reverseLogicalChannelParameters::multiplexParameters() const {
  return optional<H245_OpenLogicalChannelAck_reverseLogicalChannelParameters_multiplexParameters>(
      indexOf(h245::OpenLogicalChannelAck_reverseLogicalChannelParameters, "multiplexParameters"));
}

std::optional<H245_H2250LogicalChannelAckParameters>
H245_OpenLogicalChannelAck_forwardMultiplexAckParameters::h2250LogicalChannelAckParameters() const {
  return alternative<H245_H2250LogicalChannelAckParameters>(
      indexOf(h245::OpenLogicalChannelAck_forwardMultiplexAckParameters, "h2250LogicalChannelAckParameters"));
}

unsigned H245_OpenLogicalChannelAck::forwardLogicalChannelNumber() const {
  return number(indexOf(h245::OpenLogicalChannelAck, "forwardLogicalChannelNumber"));
}

std::optional<H245_OpenLogicalChannelAck_reverseLogicalChannelParameters>
H245_OpenLogicalChannelAck::reverseLogicalChannelParameters() const {
  return optional<H245_OpenLogicalChannelAck_reverseLogicalChannelParameters>(
      indexOf(h245::OpenLogicalChannelAck, "reverseLogicalChannelParameters"));
}

std::optional<H245_OpenLogicalChannelAck_forwardMultiplexAckParameters>
H245_OpenLogicalChannelAck::forwardMultiplexAckParameters() const {
  return optional<H245_OpenLogicalChannelAck_forwardMultiplexAckParameters>(
      indexOf(h245::OpenLogicalChannelAck, "forwardMultiplexAckParameters"));
}

std::optional<H245_OpenLogicalChannelView> H245_RequestMessage::openLogicalChannel() const {
  return alternative<H245_OpenLogicalChannelView>(indexOf(h245::RequestMessage, "openLogicalChannel"));
}

std::optional<H245_OpenLogicalChannelAck> H245_ResponseMessage::openLogicalChannelAck() const {
  return alternative<H245_OpenLogicalChannelAck>(indexOf(h245::ResponseMessage, "openLogicalChannelAck"));
}

std::optional<PString> H245_UserInputIndication::alphanumeric() const {
  if (GetTag() != indexOf(h245::UserInputIndication, "alphanumeric")) return std::nullopt;
  return asn1::text(chosen());
}

std::optional<H245_UserInputIndication> H245_IndicationMessage::userInput() const {
  return alternative<H245_UserInputIndication>(indexOf(h245::IndicationMessage, "userInput"));
}

H245_MultimediaSystemControlMessage::H245_MultimediaSystemControlMessage() : arena_(new asn1::Arena) {}
H245_MultimediaSystemControlMessage::~H245_MultimediaSystemControlMessage() = default;

namespace {

// A Q.931 message of H.225.0 begins with the octets 8 and 2 (or 1): protocol discriminator and length of the call
// reference. As H.245 they would be a requestMode with padding that is not zero, which no encoder makes; but what
// follows may happen to be well-formed.
bool looksLikeQ931(PPER_Stream stream) {
  const uint64_t start = stream.bits(16);
  return start == 0x0801 || start == 0x0802;
}

}  // namespace

bool H245_MultimediaSystemControlMessage::Decode(PPER_Stream& stream) {
  if (looksLikeQ931(stream)) stream.fail();
  value_ = &asn1::decode(h245::MultimediaSystemControlMessage, stream, *arena_);
  return !stream.failed();
}

std::optional<H245_RequestMessage> H245_MultimediaSystemControlMessage::request() const {
  return alternative<H245_RequestMessage>(indexOf(h245::MultimediaSystemControlMessage, "request"));
}

std::optional<H245_ResponseMessage> H245_MultimediaSystemControlMessage::response() const {
  return alternative<H245_ResponseMessage>(indexOf(h245::MultimediaSystemControlMessage, "response"));
}

std::optional<H245_IndicationMessage> H245_MultimediaSystemControlMessage::indication() const {
  return alternative<H245_IndicationMessage>(indexOf(h245::MultimediaSystemControlMessage, "indication"));
}

H245_OpenLogicalChannel::H245_OpenLogicalChannel() : arena_(new asn1::Arena) {}
H245_OpenLogicalChannel::~H245_OpenLogicalChannel() = default;

bool H245_OpenLogicalChannel::Decode(PPER_Stream& stream) {
  value_ = &asn1::decode(h245::OpenLogicalChannel, stream, *arena_);
  return !stream.failed();
}

// The tags of the headers are those of the tables.
static_assert(H245_UnicastAddress::e_iPAddress == indexOf(h245::UnicastAddress, "iPAddress"));
static_assert(H245_TransportAddress::e_unicastAddress == indexOf(h245::TransportAddress, "unicastAddress"));
static_assert(H245_TransportAddress::e_multicastAddress == indexOf(h245::TransportAddress, "multicastAddress"));
static_assert(H245_AudioCapability::e_g711Alaw64k == indexOf(h245::AudioCapability, "g711Alaw64k"));
static_assert(H245_AudioCapability::e_g711Ulaw64k == indexOf(h245::AudioCapability, "g711Ulaw64k"));
static_assert(H245_DataType::e_audioData == indexOf(h245::DataType, "audioData"));
static_assert(H245_RequestMessage::e_openLogicalChannel == indexOf(h245::RequestMessage, "openLogicalChannel"));
static_assert(H245_ResponseMessage::e_openLogicalChannelAck == indexOf(h245::ResponseMessage, "openLogicalChannelAck"));
static_assert(H245_IndicationMessage::e_userInput == indexOf(h245::IndicationMessage, "userInput"));
static_assert(H245_UserInputIndication::e_alphanumeric == indexOf(h245::UserInputIndication, "alphanumeric"));
static_assert(H245_MultimediaSystemControlMessage::e_indication ==
              indexOf(h245::MultimediaSystemControlMessage, "indication"));
