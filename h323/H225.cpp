#include "H225.h"

#include <arpa/inet.h>

#include "H225Schema.h"
#include "PERDecoder.h"
#include "PIPSocket.h"

namespace h225 = asn1::h225;
using asn1::indexOf;

PASN_OctetString H225_ArrayOf_PASN_OctetString::operator[](size_t index) const {
  // Octet strings have nothing below them, so that the arena holds them one behind the other.
  return PASN_OctetString(*(asn1::firstEntry(*value_) + index));
}

PASN_OctetString H225_TransportAddress_ipAddress::ip() const {
  return PASN_OctetString(component(indexOf(h225::TransportAddress_ipAddress, "ip")));
}

unsigned H225_TransportAddress_ipAddress::port() const {
  return number(indexOf(h225::TransportAddress_ipAddress, "port"));
}

PASN_OctetString H225_TransportAddress_ip6Address::ip() const {
  return PASN_OctetString(component(indexOf(h225::TransportAddress_ip6Address, "ip")));
}

unsigned H225_TransportAddress_ip6Address::port() const {
  return number(indexOf(h225::TransportAddress_ip6Address, "port"));
}

std::optional<H225_TransportAddress_ipAddress> H225_TransportAddress::ipAddress() const {
  return alternative<H225_TransportAddress_ipAddress>(indexOf(h225::TransportAddress, "ipAddress"));
}

std::optional<H225_TransportAddress_ip6Address> H225_TransportAddress::ip6Address() const {
  return alternative<H225_TransportAddress_ip6Address>(indexOf(h225::TransportAddress, "ip6Address"));
}

namespace {

constexpr char32_t kReplacementCharacter = 0xFFFD;

void appendUtf8(std::string& text, char32_t code) {
  const auto continuation = [&](unsigned shift) { text += static_cast<char>(0x80 | (code >> shift & 0x3F)); };
  if (code < 0x80) {
    text += static_cast<char>(code);
  } else if (code < 0x800) {
    text += static_cast<char>(0xC0 | code >> 6);
    continuation(0);
  } else if (code < 0x10000) {
    text += static_cast<char>(0xE0 | code >> 12);
    continuation(6);
    continuation(0);
  } else {
    text += static_cast<char>(0xF0 | code >> 18);
    continuation(12);
    continuation(6);
    continuation(0);
  }
}

// A BMPString is read as UTF-16; half a surrogate pair becomes the replacement character.
PString utf8(const asn1::Value& bmpString) {
  const auto unit = [&](uint32_t i) -> char32_t {
    return static_cast<char32_t>(bmpString.octets[2 * i] << 8 | bmpString.octets[2 * i + 1]);
  };
  std::string text;
  for (uint32_t i = 0; i < bmpString.length; ++i) {
    char32_t code = unit(i);
    const bool isHigh = (code & 0xFC00) == 0xD800;
    if (isHigh && i + 1 < bmpString.length && (unit(i + 1) & 0xFC00) == 0xDC00) {
      code = 0x10000 + ((code & 0x3FF) << 10) + (unit(++i) & 0x3FF);
    } else if ((code & 0xF800) == 0xD800) {
      code = kReplacementCharacter;
    }
    appendUtf8(text, code);
  }
  return PString(text);
}

PString portSuffix(unsigned port) {
  return port == 0 ? PString() : ":" + PString(port);
}

PString transportText(const H225_TransportAddress& address) {
  if (const auto ip = address.ipAddress()) {
    const PString text = PIPSocket::Address(ip->ip()).AsString();
    return "ip$" + (text == "0.0.0.0" ? PString("*") : text) + portSuffix(ip->port());
  }
  if (const auto ip6 = address.ip6Address()) {
    char text[INET6_ADDRSTRLEN] = {};
    inet_ntop(AF_INET6, ip6->ip().GetValue().GetPointer(), text, sizeof(text));
    return "ip$[" + PString(text) + "]" + portSuffix(ip6->port());
  }
  return PString();
}

PString partyText(const asn1::Value& partyNumber) {
  const asn1::Value& number = *partyNumber.child;
  switch (partyNumber.length) {
    case indexOf(h225::PartyNumber, "e164Number"):
      return "E164:" + asn1::text(asn1::component(number, indexOf(h225::PublicPartyNumber, "publicNumberDigits")));
    case indexOf(h225::PartyNumber, "dataPartyNumber"):
      return "Data:" + asn1::text(number);
    case indexOf(h225::PartyNumber, "telexPartyNumber"):
      return "Telex:" + asn1::text(number);
    case indexOf(h225::PartyNumber, "privateNumber"):
      return "Private:" + asn1::text(asn1::component(number, indexOf(h225::PrivatePartyNumber, "privateNumberDigits")));
    case indexOf(h225::PartyNumber, "nationalStandardPartyNumber"):
      return "NSP:" + asn1::text(number);
    default:
      return PString();
  }
}

}  // namespace

PString H225_AliasAddress::AsString() const {
  switch (GetTag()) {
    case e_dialedDigits:
    case e_url_ID:
    case e_email_ID:
      return asn1::text(chosen());
    case e_h323_ID:
      return utf8(chosen());
    case e_transportID:
      return transportText(H225_TransportAddress(chosen()));
    case e_partyNumber:
      return partyText(chosen());
    default:
      return PString();
  }
}

PString H323GetAliasAddressString(const H225_AliasAddress& alias) {
  return alias.AsString();
}

PASN_OctetString H225_CallIdentifier::guid() const {
  return PASN_OctetString(component(indexOf(h225::CallIdentifier, "guid")));
}

std::optional<H225_TransportAddress> H225_Setup_UUIE::h245Address() const {
  return optional<H225_TransportAddress>(indexOf(h225::Setup_UUIE, "h245Address"));
}

std::optional<H225_ArrayOf_AliasAddress> H225_Setup_UUIE::sourceAddress() const {
  return optional<H225_ArrayOf_AliasAddress>(indexOf(h225::Setup_UUIE, "sourceAddress"));
}

std::optional<H225_ArrayOf_AliasAddress> H225_Setup_UUIE::destinationAddress() const {
  return optional<H225_ArrayOf_AliasAddress>(indexOf(h225::Setup_UUIE, "destinationAddress"));
}

std::optional<H225_CallIdentifier> H225_Setup_UUIE::callIdentifier() const {
  return optional<H225_CallIdentifier>(indexOf(h225::Setup_UUIE, "callIdentifier"));
}

std::optional<H225_ArrayOf_PASN_OctetString> H225_Setup_UUIE::fastStart() const {
  return optional<H225_ArrayOf_PASN_OctetString>(indexOf(h225::Setup_UUIE, "fastStart"));
}

std::optional<H225_CallIdentifier> H225_CallProceeding_UUIE::callIdentifier() const {
  return optional<H225_CallIdentifier>(indexOf(h225::CallProceeding_UUIE, "callIdentifier"));
}

std::optional<H225_ArrayOf_PASN_OctetString> H225_CallProceeding_UUIE::fastStart() const {
  return optional<H225_ArrayOf_PASN_OctetString>(indexOf(h225::CallProceeding_UUIE, "fastStart"));
}

std::optional<H225_TransportAddress> H225_Connect_UUIE::h245Address() const {
  return optional<H225_TransportAddress>(indexOf(h225::Connect_UUIE, "h245Address"));
}

std::optional<H225_CallIdentifier> H225_Connect_UUIE::callIdentifier() const {
  return optional<H225_CallIdentifier>(indexOf(h225::Connect_UUIE, "callIdentifier"));
}

std::optional<H225_ArrayOf_PASN_OctetString> H225_Connect_UUIE::fastStart() const {
  return optional<H225_ArrayOf_PASN_OctetString>(indexOf(h225::Connect_UUIE, "fastStart"));
}

std::optional<H225_TransportAddress> H225_Alerting_UUIE::h245Address() const {
  return optional<H225_TransportAddress>(indexOf(h225::Alerting_UUIE, "h245Address"));
}

std::optional<H225_CallIdentifier> H225_Alerting_UUIE::callIdentifier() const {
  return optional<H225_CallIdentifier>(indexOf(h225::Alerting_UUIE, "callIdentifier"));
}

std::optional<H225_ArrayOf_PASN_OctetString> H225_Alerting_UUIE::fastStart() const {
  return optional<H225_ArrayOf_PASN_OctetString>(indexOf(h225::Alerting_UUIE, "fastStart"));
}

std::optional<H225_CallIdentifier> H225_Information_UUIE::callIdentifier() const {
  return optional<H225_CallIdentifier>(indexOf(h225::Information_UUIE, "callIdentifier"));
}

std::optional<H225_ArrayOf_PASN_OctetString> H225_Information_UUIE::fastStart() const {
  return optional<H225_ArrayOf_PASN_OctetString>(indexOf(h225::Information_UUIE, "fastStart"));
}

std::optional<H225_CallIdentifier> H225_ReleaseComplete_UUIE::callIdentifier() const {
  return optional<H225_CallIdentifier>(indexOf(h225::ReleaseComplete_UUIE, "callIdentifier"));
}

std::optional<H225_CallIdentifier> H225_Facility_UUIE::callIdentifier() const {
  return optional<H225_CallIdentifier>(indexOf(h225::Facility_UUIE, "callIdentifier"));
}

std::optional<H225_ArrayOf_PASN_OctetString> H225_Facility_UUIE::fastStart() const {
  return optional<H225_ArrayOf_PASN_OctetString>(indexOf(h225::Facility_UUIE, "fastStart"));
}

H225_CallIdentifier H225_Progress_UUIE::callIdentifier() const {
  return H225_CallIdentifier(component(indexOf(h225::Progress_UUIE, "callIdentifier")));
}

std::optional<H225_ArrayOf_PASN_OctetString> H225_Progress_UUIE::fastStart() const {
  return optional<H225_ArrayOf_PASN_OctetString>(indexOf(h225::Progress_UUIE, "fastStart"));
}

H225_CallIdentifier H225_SetupAcknowledge_UUIE::callIdentifier() const {
  return H225_CallIdentifier(component(indexOf(h225::SetupAcknowledge_UUIE, "callIdentifier")));
}

std::optional<H225_Setup_UUIE> H225_H323_UU_PDU_h323_message_body::setup() const {
  return alternative<H225_Setup_UUIE>(indexOf(h225::H323_UU_PDU_h323_message_body, "setup"));
}

std::optional<H225_CallProceeding_UUIE> H225_H323_UU_PDU_h323_message_body::callProceeding() const {
  return alternative<H225_CallProceeding_UUIE>(indexOf(h225::H323_UU_PDU_h323_message_body, "callProceeding"));
}

std::optional<H225_Connect_UUIE> H225_H323_UU_PDU_h323_message_body::connect() const {
  return alternative<H225_Connect_UUIE>(indexOf(h225::H323_UU_PDU_h323_message_body, "connect"));
}

std::optional<H225_Alerting_UUIE> H225_H323_UU_PDU_h323_message_body::alerting() const {
  return alternative<H225_Alerting_UUIE>(indexOf(h225::H323_UU_PDU_h323_message_body, "alerting"));
}

std::optional<H225_Information_UUIE> H225_H323_UU_PDU_h323_message_body::information() const {
  return alternative<H225_Information_UUIE>(indexOf(h225::H323_UU_PDU_h323_message_body, "information"));
}

std::optional<H225_ReleaseComplete_UUIE> H225_H323_UU_PDU_h323_message_body::releaseComplete() const {
  return alternative<H225_ReleaseComplete_UUIE>(indexOf(h225::H323_UU_PDU_h323_message_body, "releaseComplete"));
}

std::optional<H225_Facility_UUIE> H225_H323_UU_PDU_h323_message_body::facility() const {
  return alternative<H225_Facility_UUIE>(indexOf(h225::H323_UU_PDU_h323_message_body, "facility"));
}

std::optional<H225_Progress_UUIE> H225_H323_UU_PDU_h323_message_body::progress() const {
  return alternative<H225_Progress_UUIE>(indexOf(h225::H323_UU_PDU_h323_message_body, "progress"));
}

std::optional<H225_SetupAcknowledge_UUIE> H225_H323_UU_PDU_h323_message_body::setupAcknowledge() const {
  return alternative<H225_SetupAcknowledge_UUIE>(indexOf(h225::H323_UU_PDU_h323_message_body, "setupAcknowledge"));
}

H225_H323_UU_PDU_h323_message_body H225_H323_UU_PDU::h323_message_body() const {
  return H225_H323_UU_PDU_h323_message_body(component(indexOf(h225::H323_UU_PDU, "h323_message_body")));
}

std::optional<H225_ArrayOf_PASN_OctetString> H225_H323_UU_PDU::h245Control() const {
  return optional<H225_ArrayOf_PASN_OctetString>(indexOf(h225::H323_UU_PDU, "h245Control"));
}

H225_H323_UserInformation::H225_H323_UserInformation() : arena_(new asn1::Arena) {}
H225_H323_UserInformation::~H225_H323_UserInformation() = default;

bool H225_H323_UserInformation::Decode(PPER_Stream& stream) {
  value_ = &asn1::decode(h225::H323_UserInformation, stream, *arena_);
  return !stream.failed();
}

H225_H323_UU_PDU H225_H323_UserInformation::h323_uu_pdu() const {
  return H225_H323_UU_PDU(component(indexOf(h225::H323_UserInformation, "h323_uu_pdu")));
}

// The tags of the headers are those of the tables.
static_assert(H225_H323_UU_PDU_h323_message_body::e_empty == indexOf(h225::H323_UU_PDU_h323_message_body, "empty"));
static_assert(H225_H323_UU_PDU_h323_message_body::e_notify == indexOf(h225::H323_UU_PDU_h323_message_body, "notify"));
static_assert(H225_TransportAddress::e_ipAddress == indexOf(h225::TransportAddress, "ipAddress"));
static_assert(H225_TransportAddress::e_ip6Address == indexOf(h225::TransportAddress, "ip6Address"));
static_assert(H225_AliasAddress::e_partyNumber == indexOf(h225::AliasAddress, "partyNumber"));
