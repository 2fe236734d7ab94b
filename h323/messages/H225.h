#pragma once

#include <optional>

#include "h323/base/PString.h"
#include "h323/messages/PASN.h"
#include "h323/schema/H225Schema.h"

// The parts of H.225.0 call signalling that name a call, its parties and its media. Each class represents the ASN.1
// type of its name, and its operations have the names of the components of that type. An operation returns std::nullopt
// if its component is absent or its alternative is not chosen. Components of an extension may be absent even where the
// standard requires them, because older peers do not send them. The numbers of the alternatives are the tags of the
// standard.
//
// H225_H323_UserInformation can be decoded. All other classes are views of it; see PASN_Object for their lifetime.

/// A list of encoded messages.
class H225_ArrayOf_PASN_OctetString : public PASN_Array<PASN_OctetString> {
 public:
  using PASN_Array::PASN_Array;
  /// `index` must be less than GetSize().
  PASN_OctetString operator[](std::size_t index) const;
};

class H225_TransportAddress_ipAddress : public PASN_SequenceType<asn1::h225::TransportAddress_ipAddress> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  PASN_OctetString ip() const { return mandatory<PASN_OctetString>("ip"); }
  unsigned port() const { return number("port"); }
};

class H225_TransportAddress_ip6Address : public PASN_SequenceType<asn1::h225::TransportAddress_ip6Address> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  PASN_OctetString ip() const { return mandatory<PASN_OctetString>("ip"); }
  unsigned port() const { return number("port"); }
};

class H225_TransportAddress : public PASN_ChoiceType<asn1::h225::TransportAddress> {
 public:
  enum Choices { e_ipAddress = tagOf("ipAddress"), e_ip6Address = tagOf("ip6Address") };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<H225_TransportAddress_ipAddress> ipAddress() const {
    return alternative<H225_TransportAddress_ipAddress>("ipAddress");
  }
  std::optional<H225_TransportAddress_ip6Address> ip6Address() const {
    return alternative<H225_TransportAddress_ip6Address>("ip6Address");
  }
};

class H225_AliasAddress : public PASN_ChoiceType<asn1::h225::AliasAddress> {
 public:
  enum Choices {
    e_dialedDigits = tagOf("dialedDigits"),
    e_h323_ID = tagOf("h323_ID"),
    e_url_ID = tagOf("url_ID"),
    e_transportID = tagOf("transportID"),
    e_email_ID = tagOf("email_ID"),
    e_partyNumber = tagOf("partyNumber")
  };
  using PASN_ChoiceType::PASN_ChoiceType;
  /// See H323GetAliasAddressString().
  PString AsString() const;
};

using H225_ArrayOf_AliasAddress = PASN_Array<H225_AliasAddress>;

/// Returns the alias as text:
/// - dialedDigits, url-ID and email-ID: the characters
/// - h323-ID: the characters in UTF-8
/// - transportID: "ip$", the address (IPv6 in brackets, "*" for 0.0.0.0), and ":" and the port unless that is 0
/// - partyNumber: "E164:", "Private:", "Data:", "Telex:" or "NSP:", and the digits
/// - anything else: the empty text
PString H323GetAliasAddressString(const H225_AliasAddress& alias);

class H225_CallIdentifier : public PASN_SequenceType<asn1::h225::CallIdentifier> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  PASN_OctetString guid() const { return mandatory<PASN_OctetString>("guid"); }
};

class H225_Setup_UUIE : public PASN_SequenceType<asn1::h225::Setup_UUIE> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  std::optional<H225_TransportAddress> h245Address() const { return optional<H225_TransportAddress>("h245Address"); }
  std::optional<H225_ArrayOf_AliasAddress> sourceAddress() const {
    return optional<H225_ArrayOf_AliasAddress>("sourceAddress");
  }
  std::optional<H225_ArrayOf_AliasAddress> destinationAddress() const {
    return optional<H225_ArrayOf_AliasAddress>("destinationAddress");
  }
  std::optional<H225_CallIdentifier> callIdentifier() const { return optional<H225_CallIdentifier>("callIdentifier"); }
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const {
    return optional<H225_ArrayOf_PASN_OctetString>("fastStart");
  }
};

class H225_CallProceeding_UUIE : public PASN_SequenceType<asn1::h225::CallProceeding_UUIE> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  std::optional<H225_CallIdentifier> callIdentifier() const { return optional<H225_CallIdentifier>("callIdentifier"); }
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const {
    return optional<H225_ArrayOf_PASN_OctetString>("fastStart");
  }
};

class H225_Connect_UUIE : public PASN_SequenceType<asn1::h225::Connect_UUIE> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  std::optional<H225_TransportAddress> h245Address() const { return optional<H225_TransportAddress>("h245Address"); }
  std::optional<H225_CallIdentifier> callIdentifier() const { return optional<H225_CallIdentifier>("callIdentifier"); }
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const {
    return optional<H225_ArrayOf_PASN_OctetString>("fastStart");
  }
};

class H225_Alerting_UUIE : public PASN_SequenceType<asn1::h225::Alerting_UUIE> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  std::optional<H225_TransportAddress> h245Address() const { return optional<H225_TransportAddress>("h245Address"); }
  std::optional<H225_CallIdentifier> callIdentifier() const { return optional<H225_CallIdentifier>("callIdentifier"); }
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const {
    return optional<H225_ArrayOf_PASN_OctetString>("fastStart");
  }
};

class H225_Information_UUIE : public PASN_SequenceType<asn1::h225::Information_UUIE> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  std::optional<H225_CallIdentifier> callIdentifier() const { return optional<H225_CallIdentifier>("callIdentifier"); }
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const {
    return optional<H225_ArrayOf_PASN_OctetString>("fastStart");
  }
};

class H225_ReleaseComplete_UUIE : public PASN_SequenceType<asn1::h225::ReleaseComplete_UUIE> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  std::optional<H225_CallIdentifier> callIdentifier() const { return optional<H225_CallIdentifier>("callIdentifier"); }
};

class H225_Facility_UUIE : public PASN_SequenceType<asn1::h225::Facility_UUIE> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  std::optional<H225_CallIdentifier> callIdentifier() const { return optional<H225_CallIdentifier>("callIdentifier"); }
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const {
    return optional<H225_ArrayOf_PASN_OctetString>("fastStart");
  }
};

class H225_Progress_UUIE : public PASN_SequenceType<asn1::h225::Progress_UUIE> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  H225_CallIdentifier callIdentifier() const { return mandatory<H225_CallIdentifier>("callIdentifier"); }
  std::optional<H225_ArrayOf_PASN_OctetString> fastStart() const {
    return optional<H225_ArrayOf_PASN_OctetString>("fastStart");
  }
};

class H225_SetupAcknowledge_UUIE : public PASN_SequenceType<asn1::h225::SetupAcknowledge_UUIE> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  H225_CallIdentifier callIdentifier() const { return mandatory<H225_CallIdentifier>("callIdentifier"); }
};

class H225_H323_UU_PDU_h323_message_body : public PASN_ChoiceType<asn1::h225::H323_UU_PDU_h323_message_body> {
 public:
  enum Choices {
    e_setup = tagOf("setup"),
    e_callProceeding = tagOf("callProceeding"),
    e_connect = tagOf("connect"),
    e_alerting = tagOf("alerting"),
    e_information = tagOf("information"),
    e_releaseComplete = tagOf("releaseComplete"),
    e_facility = tagOf("facility"),
    e_progress = tagOf("progress"),
    e_empty = tagOf("empty"),
    e_status = tagOf("status"),
    e_statusInquiry = tagOf("statusInquiry"),
    e_setupAcknowledge = tagOf("setupAcknowledge"),
    e_notify = tagOf("notify")
  };
  using PASN_ChoiceType::PASN_ChoiceType;
  std::optional<H225_Setup_UUIE> setup() const { return alternative<H225_Setup_UUIE>("setup"); }
  std::optional<H225_CallProceeding_UUIE> callProceeding() const {
    return alternative<H225_CallProceeding_UUIE>("callProceeding");
  }
  std::optional<H225_Connect_UUIE> connect() const { return alternative<H225_Connect_UUIE>("connect"); }
  std::optional<H225_Alerting_UUIE> alerting() const { return alternative<H225_Alerting_UUIE>("alerting"); }
  std::optional<H225_Information_UUIE> information() const { return alternative<H225_Information_UUIE>("information"); }
  std::optional<H225_ReleaseComplete_UUIE> releaseComplete() const {
    return alternative<H225_ReleaseComplete_UUIE>("releaseComplete");
  }
  std::optional<H225_Facility_UUIE> facility() const { return alternative<H225_Facility_UUIE>("facility"); }
  std::optional<H225_Progress_UUIE> progress() const { return alternative<H225_Progress_UUIE>("progress"); }
  std::optional<H225_SetupAcknowledge_UUIE> setupAcknowledge() const {
    return alternative<H225_SetupAcknowledge_UUIE>("setupAcknowledge");
  }
};

class H225_H323_UU_PDU : public PASN_SequenceType<asn1::h225::H323_UU_PDU> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  H225_H323_UU_PDU_h323_message_body h323_message_body() const {
    return mandatory<H225_H323_UU_PDU_h323_message_body>("h323_message_body");
  }
  std::optional<H225_ArrayOf_PASN_OctetString> h245Control() const {
    return optional<H225_ArrayOf_PASN_OctetString>("h245Control");
  }
};

class H225_H323_UserInformationView : public PASN_SequenceType<asn1::h225::H323_UserInformation> {
 public:
  using PASN_SequenceType::PASN_SequenceType;
  H225_H323_UU_PDU h323_uu_pdu() const { return mandatory<H225_H323_UU_PDU>("h323_uu_pdu"); }
};

class H225_H323_UserInformation : public PASN_Message<H225_H323_UserInformationView, asn1::h225::H323_UserInformation> {
};
