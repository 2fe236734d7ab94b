#pragma once

#include <array>
#include <bitset>
#include <ostream>

#include "h323/base/PBYTEArray.h"
#include "h323/base/PString.h"

/// A Q.931 message as H.225.0 uses it for call signalling.
///
/// Decoding copies and allocates nothing: the contents of the information elements are views of the decoded octets and
/// valid as long as those. One thread at a time may use an object.
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

  /// Replaces the message by the one in `octets`. Returns false if the message is faulty; then the information elements
  /// before the fault are present. A fault before the message type leaves the call reference and the message type of
  /// the previous message.
  bool Decode(const PBYTEArray& octets);

  unsigned GetProtocolDiscriminator() const { return protocolDiscriminator_; }
  /// 15 bits, without the direction flag.
  unsigned GetCallReference() const { return callReference_; }
  /// The direction flag: true if the called side sent the message.
  bool IsFromDestination() const { return fromDestination_; }
  /// The whole octet; any value.
  unsigned GetMessageType() const { return messageType_; }

  /// One-octet elements have codes with bit 8 set. Codes above 255 are absent.
  bool HasIE(unsigned code) const { return code < present_.size() && present_[code]; }
  /// Returns the contents without code and length; for User-user also without the protocol discriminator. Empty if the
  /// element is absent.
  PBYTEArray GetIE(unsigned code) const { return HasIE(code) ? contents_[code] : PBYTEArray(); }

  /// The digits of the element; empty if it is absent or too short.
  PString GetCallingPartyNumber() const { return partyNumber(CallingPartyNumberIE); }
  PString GetCalledPartyNumber() const { return partyNumber(CalledPartyNumberIE); }

  /// Writes the header fields and the elements in the order of their codes for the signalling trace, contents in
  /// hexadecimal.
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
