#include "h323/messages/Q931.h"

#include <gtest/gtest.h>

#include "support/Segments.h"

namespace {

using Octets = std::vector<std::uint8_t>;

/// A message with the octets that it is a view of.
struct Message : Q931 {
  explicit Message(std::string_view hex) { decode(hex); }
  bool decode(std::string_view hex) {
    octets = fromHex(hex);
    return Decode(PBYTEArray(octets.data(), octets.size()));
  }
  Octets contentsOf(unsigned code) const { return {GetIE(code).begin(), GetIE(code).end()}; }
  Octets octets;
};

TEST(Q931, Header) {
  Message message("");
  EXPECT_TRUE(message.decode("0802ffff05"));
  EXPECT_EQ(message.GetCallReference(), 0x7FFF);
  EXPECT_TRUE(message.IsFromDestination());
  EXPECT_EQ(message.GetMessageType(), Q931::SetupMsg);
  // A message that is too short or has too long a call reference leaves the header of the previous one.
  EXPECT_FALSE(message.decode("08020001"));
  EXPECT_FALSE(message.decode("0803000001"));
  EXPECT_EQ(message.GetCallReference(), 0x7FFF);
  EXPECT_EQ(message.GetMessageType(), Q931::SetupMsg);
  // Any discriminator, any type, other lengths of the call reference.
  EXPECT_TRUE(message.decode("0001ffff2800"));
  EXPECT_EQ(message.GetMessageType(), 0xFF);
  EXPECT_EQ(message.GetCallReference(), 0);
  EXPECT_FALSE(message.IsFromDestination());
  EXPECT_TRUE(message.HasIE(0x28));
  EXPECT_TRUE(message.decode("0800052800"));
  EXPECT_EQ(message.GetMessageType(), Q931::SetupMsg);
}

TEST(Q931, Elements) {
  // A one-octet element, a repeated element, and User-user with its discriminator.
  Message message("0802000105a1280161280262637e000405aabbcc");
  EXPECT_TRUE(message.HasIE(0xA1) && message.GetIE(0xA1).IsEmpty());
  EXPECT_EQ(message.contentsOf(0x28), (Octets{0x62, 0x63}));
  EXPECT_EQ(message.contentsOf(Q931::UserUserIE), (Octets{0xAA, 0xBB, 0xCC}));
  EXPECT_FALSE(message.HasIE(Q931::CalledPartyNumberIE));
  EXPECT_FALSE(message.HasIE(0x100));
  // The elements before a fault are present, those of the previous message are not.
  for (const char* fault : {"28", "280261", "7e00", "7e0000", "7e0001", "7e000305aa"}) {
    SCOPED_TRACE(fault);
    EXPECT_FALSE(message.decode(std::string("0802000105040188") + fault));
    EXPECT_TRUE(message.HasIE(4));
    EXPECT_FALSE(message.HasIE(0x28) || message.HasIE(Q931::UserUserIE));
  }
  EXPECT_FALSE(message.decode("08"));
  EXPECT_FALSE(message.HasIE(4));
}

// Octet 3a is present when bit 8 of octet 3 is clear, octet 3b when bit 8 of octet 3a is clear.
TEST(Q931, PartyNumbers) {
  const std::pair<std::string, const char*> cases[] = {
      {"03813132", "12"}, {"0401803132", "12"}, {"050100003132", "12"}, {"06813132003334", "12"}, {"00", ""},
      {"0101", ""},       {"020100", ""},       {"0181", ""},           {"020180", ""},
  };
  for (const auto& [element, number] : cases) {
    EXPECT_EQ(Message("080200010570" + element).GetCalledPartyNumber(), number) << element;
    EXPECT_EQ(Message("08020001056c" + element).GetCallingPartyNumber(), number) << element;
  }
  EXPECT_EQ(Message("0802000105").GetCallingPartyNumber(), "");
}

}  // namespace
