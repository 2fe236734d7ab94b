#pragma once

#include <memory>
#include <optional>

#include "PASN.h"
#include "PPER_Stream.h"
#include "PString.h"

// The parts of H.245 that describe media channels and user input. A class stands for the ASN.1 type of its name; its
// operations are named by the components of the type, and those that may be missing, or are one of several
// alternatives, answer std::nullopt when they are not there. The numbers of the alternatives are the tags of the
// standard.
//
// H245_MultimediaSystemControlMessage and H245_OpenLogicalChannel are decoded; everything else is a view of them (see
// PASN_Object for how long it is valid).

class H245_UnicastAddress_iPAddress : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  PASN_OctetString network() const;
  unsigned tsapIdentifier() const;
};

class H245_UnicastAddress : public PASN_Choice {
 public:
  enum Choices { e_iPAddress = 0 };
  using PASN_Choice::PASN_Choice;
  std::optional<H245_UnicastAddress_iPAddress> iPAddress() const;
};

class H245_TransportAddress : public PASN_Choice {
 public:
  enum Choices { e_unicastAddress = 0, e_multicastAddress = 1 };
  using PASN_Choice::PASN_Choice;
  std::optional<H245_UnicastAddress> unicastAddress() const;
};

class H245_AudioCapability : public PASN_Choice {
 public:
  enum Choices { e_g711Alaw64k = 1, e_g711Ulaw64k = 3 };
  using PASN_Choice::PASN_Choice;
  // The value of an alternative that is an INTEGER (frames or samples per packet); 0 for all others.
  unsigned integer() const;
};

class H245_DataType : public PASN_Choice {
 public:
  enum Choices { e_audioData = 3 };
  using PASN_Choice::PASN_Choice;
  std::optional<H245_AudioCapability> audioData() const;
};

class H245_H2250LogicalChannelParameters : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  std::optional<H245_TransportAddress> mediaChannel() const;
  std::optional<H245_TransportAddress> mediaControlChannel() const;
};

class H245_H2250LogicalChannelAckParameters : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  std::optional<H245_TransportAddress> mediaChannel() const;
  std::optional<H245_TransportAddress> mediaControlChannel() const;
};

class H245_OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters : public PASN_Choice {
 public:
  enum Choices { e_h2250LogicalChannelParameters = 3 };
  using PASN_Choice::PASN_Choice;
  std::optional<H245_H2250LogicalChannelParameters> h2250LogicalChannelParameters() const;
};

class H245_OpenLogicalChannel_forwardLogicalChannelParameters : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  H245_DataType dataType() const;
  H245_OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters multiplexParameters() const;
};

class H245_OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters : public PASN_Choice {
 public:
  enum Choices { e_h2250LogicalChannelParameters = 2 };
  using PASN_Choice::PASN_Choice;
  std::optional<H245_H2250LogicalChannelParameters> h2250LogicalChannelParameters() const;
};

class H245_OpenLogicalChannel_reverseLogicalChannelParameters : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  H245_DataType dataType() const;
  std::optional<H245_OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters> multiplexParameters()
      const;
};

// An OpenLogicalChannel inside another message; H245_OpenLogicalChannel below is one that is decoded by itself.
class H245_OpenLogicalChannelView : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  unsigned forwardLogicalChannelNumber() const;
  H245_OpenLogicalChannel_forwardLogicalChannelParameters forwardLogicalChannelParameters() const;
  std::optional<H245_OpenLogicalChannel_reverseLogicalChannelParameters> reverseLogicalChannelParameters() const;
};

class H245_OpenLogicalChannelAck_reverseLogicalChannelParameters_multiplexParameters : public PASN_Choice {
 public:
  enum Choices { e_h2250LogicalChannelParameters = 1 };
  using PASN_Choice::PASN_Choice;
  std::optional<H245_H2250LogicalChannelParameters> h2250LogicalChannelParameters() const;
};

class H245_OpenLogicalChannelAck_reverseLogicalChannelParameters : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  std::optional<H245_OpenLogicalChannelAck_reverseLogicalChannelParameters_multiplexParameters> multiplexParameters()
      const;
};

class H245_OpenLogicalChannelAck_forwardMultiplexAckParameters : public PASN_Choice {
 public:
  enum Choices { e_h2250LogicalChannelAckParameters = 0 };
  using PASN_Choice::PASN_Choice;
  std::optional<H245_H2250LogicalChannelAckParameters> h2250LogicalChannelAckParameters() const;
};

class H245_OpenLogicalChannelAck : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  unsigned forwardLogicalChannelNumber() const;
  std::optional<H245_OpenLogicalChannelAck_reverseLogicalChannelParameters> reverseLogicalChannelParameters() const;
  std::optional<H245_OpenLogicalChannelAck_forwardMultiplexAckParameters> forwardMultiplexAckParameters() const;
};

class H245_RequestMessage : public PASN_Choice {
 public:
  enum Choices { e_openLogicalChannel = 3 };
  using PASN_Choice::PASN_Choice;
  std::optional<H245_OpenLogicalChannelView> openLogicalChannel() const;
};

class H245_ResponseMessage : public PASN_Choice {
 public:
  enum Choices { e_openLogicalChannelAck = 5 };
  using PASN_Choice::PASN_Choice;
  std::optional<H245_OpenLogicalChannelAck> openLogicalChannelAck() const;
};

class H245_UserInputIndication : public PASN_Choice {
 public:
  enum Choices { e_alphanumeric = 1 };
  using PASN_Choice::PASN_Choice;
  std::optional<PString> alphanumeric() const;
};

class H245_IndicationMessage : public PASN_Choice {
 public:
  enum Choices { e_userInput = 13 };
  using PASN_Choice::PASN_Choice;
  std::optional<H245_UserInputIndication> userInput() const;
};

class H245_MultimediaSystemControlMessage : public PASN_Choice {
 public:
  enum Choices { e_request, e_response, e_command, e_indication };

  H245_MultimediaSystemControlMessage();
  ~H245_MultimediaSystemControlMessage();
  H245_MultimediaSystemControlMessage(const H245_MultimediaSystemControlMessage&) = delete;
  H245_MultimediaSystemControlMessage& operator=(const H245_MultimediaSystemControlMessage&) = delete;

  // Replaces the message by the next one in `stream` and answers whether it could be decoded; if not, everything in it
  // is absent. Allocates nothing. A Q.931 message with a call reference is never taken for one of H.245.
  bool Decode(PPER_Stream& stream);

  std::optional<H245_RequestMessage> request() const;
  std::optional<H245_ResponseMessage> response() const;
  std::optional<H245_IndicationMessage> indication() const;

 private:
  std::unique_ptr<asn1::Arena> arena_;
};

class H245_OpenLogicalChannel : public H245_OpenLogicalChannelView {
 public:
  H245_OpenLogicalChannel();
  ~H245_OpenLogicalChannel();
  H245_OpenLogicalChannel(const H245_OpenLogicalChannel&) = delete;
  H245_OpenLogicalChannel& operator=(const H245_OpenLogicalChannel&) = delete;

  // As H245_MultimediaSystemControlMessage::Decode.
  bool Decode(PPER_Stream& stream);

 private:
  std::unique_ptr<asn1::Arena> arena_;
};
