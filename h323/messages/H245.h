#pragma once

#include <optional>

#include "h323/base/PString.h"
#include "h323/messages/PASN.h"
#include "h323/schema/H245Schema.h"

// The parts of H.245 that describe media channels and user input. Each class represents the ASN.1 type of its name, and
// its operations have the names of the components of that type. An operation returns std::nullopt if its component is
// absent or its alternative is not chosen. The numbers of the alternatives are the tags of the standard.
//
// H245_MultimediaSystemControlMessage and H245_OpenLogicalChannel can be decoded. All other classes are views of them;
// see PASN_Object for their lifetime.

class H245_UnicastAddress_iPAddress : public PASN_SequenceType<asn1::h245::UnicastAddress_iPAddress> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  PASN_OctetString network() const { return mandatory<PASN_OctetString>("network"); }
  unsigned tsapIdentifier() const { return number("tsapIdentifier"); }
};

class H245_UnicastAddress_iP6Address : public PASN_SequenceType<asn1::h245::UnicastAddress_iP6Address> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  PASN_OctetString network() const { return mandatory<PASN_OctetString>("network"); }
  unsigned tsapIdentifier() const { return number("tsapIdentifier"); }
};

class H245_UnicastAddress : public PASN_ChoiceType<asn1::h245::UnicastAddress> {
 public:
  enum Choices { e_iPAddress = tagOf("iPAddress"), e_iP6Address = tagOf("iP6Address") };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<H245_UnicastAddress_iPAddress> iPAddress() const {
    return alternative<H245_UnicastAddress_iPAddress>("iPAddress");
  }
  std::optional<H245_UnicastAddress_iP6Address> iP6Address() const {
    return alternative<H245_UnicastAddress_iP6Address>("iP6Address");
  }
};

class H245_TransportAddress : public PASN_ChoiceType<asn1::h245::TransportAddress> {
 public:
  enum Choices { e_unicastAddress = tagOf("unicastAddress"), e_multicastAddress = tagOf("multicastAddress") };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<H245_UnicastAddress> unicastAddress() const {
    return alternative<H245_UnicastAddress>("unicastAddress");
  }
};

class H245_AudioCapability : public PASN_ChoiceType<asn1::h245::AudioCapability> {
 public:
  enum Choices { e_g711Alaw64k = tagOf("g711Alaw64k"), e_g711Ulaw64k = tagOf("g711Ulaw64k") };
  using PASN_ChoiceType::PASN_ChoiceType;
  /// Returns the value of an alternative that is an INTEGER (frames or samples per packet), 0 for all others.
  unsigned integer() const;
};

class H245_DataType : public PASN_ChoiceType<asn1::h245::DataType> {
 public:
  enum Choices { e_audioData = tagOf("audioData") };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<H245_AudioCapability> audioData() const { return alternative<H245_AudioCapability>("audioData"); }
};

class H245_H2250LogicalChannelParameters : public PASN_SequenceType<asn1::h245::H2250LogicalChannelParameters> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  std::optional<H245_TransportAddress> mediaChannel() const { return optional<H245_TransportAddress>("mediaChannel"); }
  std::optional<H245_TransportAddress> mediaControlChannel() const {
    return optional<H245_TransportAddress>("mediaControlChannel");
  }
};

class H245_H2250LogicalChannelAckParameters : public PASN_SequenceType<asn1::h245::H2250LogicalChannelAckParameters> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  std::optional<H245_TransportAddress> mediaChannel() const { return optional<H245_TransportAddress>("mediaChannel"); }
  std::optional<H245_TransportAddress> mediaControlChannel() const {
    return optional<H245_TransportAddress>("mediaControlChannel");
  }
};

class H245_OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters
    : public PASN_ChoiceType<asn1::h245::OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters> {
 public:
  enum Choices { e_h2250LogicalChannelParameters = tagOf("h2250LogicalChannelParameters") };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<H245_H2250LogicalChannelParameters> h2250LogicalChannelParameters() const {
    return alternative<H245_H2250LogicalChannelParameters>("h2250LogicalChannelParameters");
  }
};

class H245_OpenLogicalChannel_forwardLogicalChannelParameters
    : public PASN_SequenceType<asn1::h245::OpenLogicalChannel_forwardLogicalChannelParameters> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  H245_DataType dataType() const { return mandatory<H245_DataType>("dataType"); }
  H245_OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters multiplexParameters() const {
    return mandatory<H245_OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters>(
        "multiplexParameters");
  }
};

class H245_OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters
    : public PASN_ChoiceType<asn1::h245::OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters> {
 public:
  enum Choices { e_h2250LogicalChannelParameters = tagOf("h2250LogicalChannelParameters") };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<H245_H2250LogicalChannelParameters> h2250LogicalChannelParameters() const {
    return alternative<H245_H2250LogicalChannelParameters>("h2250LogicalChannelParameters");
  }
};

class H245_OpenLogicalChannel_reverseLogicalChannelParameters
    : public PASN_SequenceType<asn1::h245::OpenLogicalChannel_reverseLogicalChannelParameters> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  H245_DataType dataType() const { return mandatory<H245_DataType>("dataType"); }
  std::optional<H245_OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters> multiplexParameters()
      const {
    return optional<H245_OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters>("multiplexParameters");
  }
};

/// An OpenLogicalChannel inside another message. H245_OpenLogicalChannel below is decoded separately.
class H245_OpenLogicalChannelView : public PASN_SequenceType<asn1::h245::OpenLogicalChannel> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  unsigned forwardLogicalChannelNumber() const { return number("forwardLogicalChannelNumber"); }
  H245_OpenLogicalChannel_forwardLogicalChannelParameters forwardLogicalChannelParameters() const {
    return mandatory<H245_OpenLogicalChannel_forwardLogicalChannelParameters>("forwardLogicalChannelParameters");
  }
  std::optional<H245_OpenLogicalChannel_reverseLogicalChannelParameters> reverseLogicalChannelParameters() const {
    return optional<H245_OpenLogicalChannel_reverseLogicalChannelParameters>("reverseLogicalChannelParameters");
  }
};

class H245_OpenLogicalChannelAck_reverseLogicalChannelParameters_multiplexParameters
    : public PASN_ChoiceType<asn1::h245::OpenLogicalChannelAck_reverseLogicalChannelParameters_multiplexParameters> {
 public:
  enum Choices { e_h2250LogicalChannelParameters = tagOf("h2250LogicalChannelParameters") };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<H245_H2250LogicalChannelParameters> h2250LogicalChannelParameters() const {
    return alternative<H245_H2250LogicalChannelParameters>("h2250LogicalChannelParameters");
  }
};

class H245_OpenLogicalChannelAck_reverseLogicalChannelParameters
    : public PASN_SequenceType<asn1::h245::OpenLogicalChannelAck_reverseLogicalChannelParameters> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  std::optional<H245_OpenLogicalChannelAck_reverseLogicalChannelParameters_multiplexParameters> multiplexParameters()
      const {
    return optional<H245_OpenLogicalChannelAck_reverseLogicalChannelParameters_multiplexParameters>(
        "multiplexParameters");
  }
};

class H245_OpenLogicalChannelAck_forwardMultiplexAckParameters
    : public PASN_ChoiceType<asn1::h245::OpenLogicalChannelAck_forwardMultiplexAckParameters> {
 public:
  enum Choices { e_h2250LogicalChannelAckParameters = tagOf("h2250LogicalChannelAckParameters") };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<H245_H2250LogicalChannelAckParameters> h2250LogicalChannelAckParameters() const {
    return alternative<H245_H2250LogicalChannelAckParameters>("h2250LogicalChannelAckParameters");
  }
};

class H245_OpenLogicalChannelAck : public PASN_SequenceType<asn1::h245::OpenLogicalChannelAck> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  unsigned forwardLogicalChannelNumber() const { return number("forwardLogicalChannelNumber"); }
  std::optional<H245_OpenLogicalChannelAck_reverseLogicalChannelParameters> reverseLogicalChannelParameters() const {
    return optional<H245_OpenLogicalChannelAck_reverseLogicalChannelParameters>("reverseLogicalChannelParameters");
  }
  std::optional<H245_OpenLogicalChannelAck_forwardMultiplexAckParameters> forwardMultiplexAckParameters() const {
    return optional<H245_OpenLogicalChannelAck_forwardMultiplexAckParameters>("forwardMultiplexAckParameters");
  }
};

class H245_RequestMessage : public PASN_ChoiceType<asn1::h245::RequestMessage> {
 public:
  enum Choices { e_openLogicalChannel = tagOf("openLogicalChannel") };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<H245_OpenLogicalChannelView> openLogicalChannel() const {
    return alternative<H245_OpenLogicalChannelView>("openLogicalChannel");
  }
};

class H245_ResponseMessage : public PASN_ChoiceType<asn1::h245::ResponseMessage> {
 public:
  enum Choices { e_openLogicalChannelAck = tagOf("openLogicalChannelAck") };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<H245_OpenLogicalChannelAck> openLogicalChannelAck() const {
    return alternative<H245_OpenLogicalChannelAck>("openLogicalChannelAck");
  }
};

class H245_UserInputIndication : public PASN_ChoiceType<asn1::h245::UserInputIndication> {
 public:
  enum Choices { e_alphanumeric = tagOf("alphanumeric") };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<PString> alphanumeric() const;
};

class H245_IndicationMessage : public PASN_ChoiceType<asn1::h245::IndicationMessage> {
 public:
  enum Choices { e_userInput = tagOf("userInput") };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<H245_UserInputIndication> userInput() const {
    return alternative<H245_UserInputIndication>("userInput");
  }
};

class H245_MultimediaSystemControlMessageView : public PASN_ChoiceType<asn1::h245::MultimediaSystemControlMessage> {
 public:
  enum Choices {
    e_request = tagOf("request"),
    e_response = tagOf("response"),
    e_command = tagOf("command"),
    e_indication = tagOf("indication")
  };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<H245_RequestMessage> request() const { return alternative<H245_RequestMessage>("request"); }
  std::optional<H245_ResponseMessage> response() const { return alternative<H245_ResponseMessage>("response"); }
  std::optional<H245_IndicationMessage> indication() const { return alternative<H245_IndicationMessage>("indication"); }
};

class H245_MultimediaSystemControlMessage
    : public PASN_Message<H245_MultimediaSystemControlMessageView, asn1::h245::MultimediaSystemControlMessage> {};

class H245_OpenLogicalChannel : public PASN_Message<H245_OpenLogicalChannelView, asn1::h245::OpenLogicalChannel> {};
