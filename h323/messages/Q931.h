#pragma once

#include <array>
#include <bitset>
#include <ostream>

#include "h323/base/PBYTEArray.h"
#include "h323/base/PString.h"

// A Q.931 message as H.225.0 uses it for call signalling.
//
// Decoding copies nothing and allocates nothing: the contents of the information elements are views of the decoded
// octets and valid as long as those. An object is for one thread at a time.
class Q931 {
 public:
  enum MsgTypes {
    AlertingMsg = 1,
    CallProceedingMsg = 2,
    ProgressMsg = 3,
    SetupMsg = 5,
    ConnectMsg = 7,
    SetupAckMsg = 13,
    ReleaseCompleteMsg = 90,
    FacilityMsg = 98,
    NotifyMsg = 110,
    StatusEnquiryMsg = 117,
    InformationMsg = 123,
    StatusMsg = 125
  };

  enum InformationElementCodes { CauseIE = 8, CallingPartyNumberIE = 108, CalledPartyNumberIE = 112, UserUserIE = 126 };

  // Replaces the message by the one in `octets` and answers whether all of it could be read. After a failure the
  // information elements in front of the fault are readable; a failure in front of the message type leaves the call
  // reference and the types of the message before.
  bool Decode(const PBYTEArray& octets);

  unsigned GetProtocolDiscriminator() const { return protocolDiscriminator_; }
  // 15 bits, without the direction flag.
  unsigned GetCallReference() const { return callReference_; }
  // The direction flag: sent by the side that the call came to.
  bool IsFromDestination() const { return fromDestination_; }
  // The whole octet; any value.
  unsigned GetMessageType() const { return messageType_; }

  // Codes of one-octet elements have bit 8 set. A code above 255 is absent.
  bool HasIE(unsigned code) const { return code < present_.size() && present_[code]; }
  // The contents without code and length, for User-user without its protocol discriminator too; empty if absent.
  PBYTEArray GetIE(unsigned code) const { return HasIE(code) ? contents_[code] : PBYTEArray(); }

  // The digits of the element, empty if it is absent or too short.
  PString GetCallingPartyNumber() const { return partyNumber(CallingPartyNumberIE); }
  PString GetCalledPartyNumber() const { return partyNumber(CalledPartyNumberIE); }

  // For people: header fields and elements in order of their codes, a line each, contents in hexadecimal.
  friend std::ostream& operator<<(std::ostream& stream, const Q931& message);

 private:
  bool decodeElements(PBYTEArray rest);
  PString partyNumber(unsigned code) const;

  unsigned protocolDiscriminator_ = 8;
  unsigned callReference_ = 0;
  bool fromDestination_ = false;
  unsigned messageType_ = 0;
  std::bitset<256> present_;
  std::array<PBYTEArray, 256> contents_;
};
