#include <gtest/gtest.h>

#include <memory>

#include "h323/base/OpalGloballyUniqueID.h"
#include "h323/messages/H225.h"
#include "support/Segments.h"

namespace {

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
  EXPECT_EQ(OpalGloballyUniqueID(PBYTEArray()).AsString(), "00000000-0000-0000-0000-000000000000");
}

// The calls in the parser's tests contain the other kinds of aliases.
TEST(Texts, Aliases) {
  const struct {
    const char* encoded;
    const char* text;
  } cases[] = {
      // h323-ID: one, two, three and four octets of UTF-8; half a surrogate pair at either end; a zero ends the text.
      {"4006006100e920acd83dde00de00d83d", "a\u00E9\u20AC\U0001F600\uFFFD\uFFFD"},
      {"4002006100000062", "a"},
      // transportID: IPv4, IPv6, and NetBIOS, which has no text.
      {"8107000a00000106b8", "ip$10.0.0.1:1720"},
      {"810700000000000000", "ip$*"},
      {"81133020010db80000000000000000000000010005", "ip$[2001:db8::1]:5"},
      {"81114030313233343536373839616263646566", ""},
  };
  const auto arena = std::make_unique<asn1::Arena>();
  for (const auto& [encoded, text] : cases) {
    const auto octets = fromHex(encoded);
    PPER_Stream stream(PBYTEArray(octets.data(), octets.size()));
    const H225_AliasAddress alias(asn1::decode(asn1::h225::AliasAddress, stream, *arena));
    EXPECT_FALSE(stream.failed()) << encoded;
    EXPECT_EQ(H323GetAliasAddressString(alias), text) << encoded;
  }
}

}  // namespace
