#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "H225.h"
#include "H225Schema.h"
#include "OpalGloballyUniqueID.h"
#include "PERDecoder.h"
#include "PIPSocket.h"
#include "RandomMessage.h"
#include "Vectors.h"

namespace {

namespace h225 = asn1::h225;

TEST(Texts, EndAtTheirFirstZero) {
  using namespace std::string_view_literals;
  EXPECT_EQ(PString("ab\0cd"sv).GetLength(), 2);
  PString text(7374);
  text += "\t "sv.data();
  text += '\0';
  EXPECT_EQ("r:" + text.Trim() + "\n", "r:7374\n");
  EXPECT_EQ(PString(" \v\f\r\n\t").Trim(), "");
  EXPECT_EQ(PString("10").Compare("9"), PString::LessThan);
  EXPECT_EQ(PString("\xE9").Compare("z"), PString::GreaterThan);
  EXPECT_EQ(PString("1").Compare("10"), PString::LessThan);
  EXPECT_EQ(PString(static_cast<const char*>(nullptr)).Compare(""), PString::EqualTo);
}

TEST(Texts, AddressesAndIdentifiers) {
  const auto octets = fromHex("181d96c5bfe3f11184cb4a1b0e11fba3");
  EXPECT_EQ(OpalGloballyUniqueID(PBYTEArray(octets.data(), 16)).AsString(), "181d96c5-bfe3-f111-84cb-4a1b0e11fba3");
  EXPECT_EQ(OpalGloballyUniqueID(PBYTEArray()).AsString(), "00000000-0000-0000-0000-000000000000");
  EXPECT_EQ(PIPSocket::Address(PBYTEArray(octets.data(), 4)).AsString(), "24.29.150.197");
  uint32_t networkOrder = 0;
  std::memcpy(&networkOrder, octets.data(), 4);
  EXPECT_EQ(PIPSocket::Address(networkOrder).AsString(), "24.29.150.197");
}

RandomValue string(const asn1::Type& type, std::string_view octets) {
  RandomValue value;
  value.type = &type;
  value.octets.assign(octets.begin(), octets.end());
  value.length = octets.size() * 8 / (type.unit == 16 ? 16 : 8);
  return value;
}

RandomValue number(const asn1::Type& type, int64_t of) {
  RandomValue value;
  value.type = &type;
  value.number = of;
  return value;
}

RandomValue choice(const asn1::Type& type, unsigned tag, RandomValue child) {
  RandomValue value;
  value.type = &type;
  value.length = tag;
  value.children.push_back(std::move(child));
  return value;
}

RandomValue sequence(const asn1::Type& type, RandomValue first, RandomValue second) {
  RandomValue value;
  value.type = &type;
  second.index = 1;
  value.children = {std::move(first), std::move(second)};
  return value;
}

std::string aliasText(unsigned tag, RandomValue alias) {
  const auto octets = encode(choice(h225::AliasAddress, tag, std::move(alias)), false);
  const auto arena = std::make_unique<asn1::Arena>();
  PPER_Stream stream(PBYTEArray(octets.data(), octets.size()));
  const H225_AliasAddress decoded(asn1::decode(h225::AliasAddress, stream, *arena));
  EXPECT_FALSE(stream.failed());
  return static_cast<const char*>(H323GetAliasAddressString(decoded));
}

std::string transportText(unsigned tag, const asn1::Type& type, std::string_view ip, int64_t port) {
  const auto& octets = *type.fields[0].type;
  RandomValue address = sequence(type, string(octets, ip), number(asn1::Integer<0, 65535>, port));
  return aliasText(H225_AliasAddress::e_transportID, choice(h225::TransportAddress, tag, std::move(address)));
}

TEST(Texts, Aliases) {
  using namespace std::string_view_literals;
  const auto bmp = [](std::string_view utf16) { return string(asn1::BmpString<1, 256>, utf16); };
  const RandomValue digits = string(h225::NumberDigits, "123#");
  const RandomValue unknown = number(asn1::Null, 0);

  EXPECT_EQ(aliasText(H225_AliasAddress::e_dialedDigits, string(h225::NumberDigits, "0*#,9")), "0*#,9");
  EXPECT_EQ(aliasText(H225_AliasAddress::e_url_ID, string(asn1::IA5String<1, 512>, "sip:a@b")), "sip:a@b");
  EXPECT_EQ(aliasText(H225_AliasAddress::e_email_ID, string(asn1::IA5String<1, 512>, "a@b")), "a@b");

  // One, two, three and four octets of UTF-8; half a pair at either end; a zero ends the text.
  constexpr std::string_view kUtf16 = "\0a\0\xE9\x20\xAC\xD8\x3D\xDE\x00\xDE\x00\xD8\x3D"sv;
  EXPECT_EQ(aliasText(H225_AliasAddress::e_h323_ID, bmp(kUtf16)), "a\u00E9\u20AC\U0001F600\uFFFD\uFFFD");
  EXPECT_EQ(aliasText(H225_AliasAddress::e_h323_ID, bmp("\0a\0\0\0b"sv)), "a");

  const auto& ip = h225::TransportAddress_ipAddress;
  EXPECT_EQ(transportText(0, ip, "\x0A\x00\x00\x01"sv, 1720), "ip$10.0.0.1:1720");
  EXPECT_EQ(transportText(0, ip, "\0\0\0\0"sv, 0), "ip$*");
  const auto& ip6 = h225::TransportAddress_ip6Address;
  EXPECT_EQ(transportText(3, ip6, "\x20\x01\x0D\xB8\0\0\0\0\0\0\0\0\0\0\0\1"sv, 5), "ip$[2001:db8::1]:5");
  EXPECT_EQ(aliasText(H225_AliasAddress::e_transportID,
                      choice(h225::TransportAddress, 4, string(asn1::OctetString<16>, "0123456789abcdef"))),
            "");

  const auto party = [&](unsigned tag, RandomValue value) {
    return aliasText(H225_AliasAddress::e_partyNumber, choice(h225::PartyNumber, tag, std::move(value)));
  };
  EXPECT_EQ(party(0, sequence(h225::PublicPartyNumber, choice(h225::PublicTypeOfNumber, 0, unknown), digits)),
            "E164:123#");
  EXPECT_EQ(party(1, digits), "Data:123#");
  EXPECT_EQ(party(2, digits), "Telex:123#");
  EXPECT_EQ(party(3, sequence(h225::PrivatePartyNumber, choice(h225::PrivateTypeOfNumber, 0, unknown), digits)),
            "Private:123#");
  EXPECT_EQ(party(4, digits), "NSP:123#");
}

}  // namespace
