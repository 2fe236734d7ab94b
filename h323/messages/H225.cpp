#include "h323/messages/H225.h"

#include <arpa/inet.h>

#include "h323/base/PIPSocket.h"

namespace h225 = asn1::h225;
using asn1::indexOf;

PASN_OctetString H225_ArrayOf_PASN_OctetString::operator[](std::size_t index) const {
  // An octet string contains no values, so the entries are contiguous in the arena.
  return PASN_OctetString(*(asn1::firstEntry(*value_) + index));
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

/// Converts a BMPString, read as UTF-16. Half a surrogate pair becomes the replacement character.
PString utf8(const asn1::Value& bmpString) {
  const auto unit = [&](std::uint32_t i) -> char32_t {
    return static_cast<char32_t>(bmpString.octets[2 * i] << 8 | bmpString.octets[2 * i + 1]);
  };
  std::string text;
  for (std::uint32_t i = 0; i < bmpString.length; ++i) {
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

/// ':' and the port, nothing for port 0.
PString portSuffix(unsigned port) {
  return port == 0 ? PString() : ":" + PString(port);
}

/// The address after "ip$"; see H323GetAliasAddressString().
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

/// The digits after the kind of number; see H323GetAliasAddressString().
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
