#pragma once

#include <memory>
#include <optional>

#include "PASN.h"
#include "PPER_Stream.h"
#include "PString.h"

// The parts of H.225.0 call signalling that name a call, its parties and its media. A class stands for the ASN.1 type
// of its name; its operations are named by the components of the type, and those that may be missing (components of an
// extension too, for an older peer does not send them), or are one of several alternatives, answer std::nullopt when
// they are not there. The numbers of the alternatives are the tags of the standard.
//
// H225_H323_UserInformation is decoded; everything else is a view of it (see PASN_Object for how long it is valid).

// A list of encoded messages.
class H225_ArrayOf_PASN_OctetString : public PASN_Array<PASN_OctetString> {
 public:
  using PASN_Array::PASN_Array;
  // `index` must be less than GetSize().
  PASN_OctetString operator[](size_t index) const;
};

class H225_TransportAddress_ipAddress : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  PASN_OctetString ip() const;
  unsigned port() const;
};

class H225_TransportAddress_ip6Address : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  PASN_OctetString ip() const;
  unsigned port() const;
};

class H225_TransportAddress : public PASN_Choice {
 public:
  enum Choices { e_ipAddress = 0, e_ip6Address = 3 };
  using PASN_Choice::PASN_Choice;
  std::optional<H225_TransportAddress_ipAddress> ipAddress() const;
  std::optional<H225_TransportAddress_ip6Address> ip6Address() const;
};

class H225_AliasAddress : public PASN_Choice {
 public:
  enum Choices { e_dialedDigits, e_h323_ID, e_url_ID, e_transportID, e_email_ID, e_partyNumber };
  using PASN_Choice::PASN_Choice;
  // See H323GetAliasAddressString.
  PString AsString() const;
};

using H225_ArrayOf_AliasAddress = PASN_Array<H225_AliasAddress>;

// The alias for people. dialedDigits, url-ID and email-ID: the characters. h323-ID: as UTF-8. transportID: "ip$", the
// address (IPv6 in brackets, "*" for 0.0.0.0), ":" and the port unless it is 0. partyNumber: "E164:", "Private:",
// "Data:", "Telex:" or "NSP:" and the digits. Empty for anything else.
PString H323GetAliasAddressString(const H225_AliasAddress& alias);

class H225_CallIdentifier : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  PASN_OctetString guid() const;
};

class H225_Setup_UUIE : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  std::optional<H225_TransportAddress> h245Address() const;
  std::optional<H225_ArrayOf_AliasAddress> sourceAddress() const;
  std::optional<H225_ArrayOf_AliasAddress> destinationAddress() const;
  std::optional<H225_CallIdentifier> callIdentifier() const;
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const;
};

class H225_CallProceeding_UUIE : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  std::optional<H225_CallIdentifier> callIdentifier() const;
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const;
};

class H225_Connect_UUIE : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  std::optional<H225_TransportAddress> h245Address() const;
  std::optional<H225_CallIdentifier> callIdentifier() const;
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const;
};

class H225_Alerting_UUIE : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  std::optional<H225_TransportAddress> h245Address() const;
  std::optional<H225_CallIdentifier> callIdentifier() const;
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const;
};

class H225_Information_UUIE : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  std::optional<H225_CallIdentifier> callIdentifier() const;
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const;
};

class H225_ReleaseComplete_UUIE : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  std::optional<H225_CallIdentifier> callIdentifier() const;
};

class H225_Facility_UUIE : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  std::optional<H225_CallIdentifier> callIdentifier() const;
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const;
};

class H225_Progress_UUIE : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  H225_CallIdentifier callIdentifier() const;
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const;
};

class H225_SetupAcknowledge_UUIE : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  H225_CallIdentifier callIdentifier() const;
};

class H225_H323_UU_PDU_h323_message_body : public PASN_Choice {
 public:
  enum Choices {
    e_setup,
    e_callProceeding,
    e_connect,
    e_alerting,
    e_information,
    e_releaseComplete,
    e_facility,
    e_progress,
    e_empty,
    e_status,
    e_statusInquiry,
    e_setupAcknowledge,
    e_notify
  };
  using PASN_Choice::PASN_Choice;
  std::optional<H225_Setup_UUIE> setup() const;
  std::optional<H225_CallProceeding_UUIE> callProceeding() const;
  std::optional<H225_Connect_UUIE> connect() const;
  std::optional<H225_Alerting_UUIE> alerting() const;
  std::optional<H225_Information_UUIE> information() const;
  std::optional<H225_ReleaseComplete_UUIE> releaseComplete() const;
  std::optional<H225_Facility_UUIE> facility() const;
  std::optional<H225_Progress_UUIE> progress() const;
  std::optional<H225_SetupAcknowledge_UUIE> setupAcknowledge() const;
};

class H225_H323_UU_PDU : public PASN_Sequence {
 public:
  using PASN_Sequence::PASN_Sequence;
  H225_H323_UU_PDU_h323_message_body h323_message_body() const;
  std::optional<H225_ArrayOf_PASN_OctetString> h245Control() const;
};

class H225_H323_UserInformation : public PASN_Sequence {
 public:
  H225_H323_UserInformation();
  ~H225_H323_UserInformation();
  H225_H323_UserInformation(const H225_H323_UserInformation&) = delete;
  H225_H323_UserInformation& operator=(const H225_H323_UserInformation&) = delete;

  // Replaces the message by the next one in `stream` and answers whether it could be decoded; if not, everything in it
  // is absent. Allocates nothing.
  bool Decode(PPER_Stream& stream);

  H225_H323_UU_PDU h323_uu_pdu() const;

 private:
  std::unique_ptr<asn1::Arena> arena_;
};
