#include "Q931.h"

#include <gtest/gtest.h>

#include "Vectors.h"

namespace {

// The octets are kept, for a message is a view of them.
struct Message : Q931 {
  explicit Message(const char* hex) { decoded = decode(hex); }
  bool decode(const char* hex) {
    octets = fromHex(hex);
    return Decode(PBYTEArray(octets.data(), octets.size()));
  }
  std::vector<uint8_t> octets;
  bool decoded = false;
};

std::string hex(const PBYTEArray& octets) {
  std::string text;
  for (const uint8_t octet : octets) {
    text += "0123456789abcdef"[octet >> 4];
    text += "0123456789abcdef"[octet & 15];
  }
  return text;
}

TEST(Q931, Header) {
  Message message("0802ffff05");
  EXPECT_TRUE(message.decoded);
  EXPECT_EQ(message.GetCallReference(), 0x7FFF);
  EXPECT_TRUE(message.IsFromDestination());
  EXPECT_EQ(message.GetMessageType(), Q931::SetupMsg);
  // Too short, or a call reference too long: the message before stays.
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
  // One octet, two alike, and a User-user with its discriminator.
  Message message(
      "0802000105"
      "a1"
      "280161"
      "28026263"
      "7e000405aabbcc");
  EXPECT_TRUE(message.decoded);
  EXPECT_TRUE(message.HasIE(0xA1));
  EXPECT_EQ(hex(message.GetIE(0xA1)), "");
  EXPECT_EQ(hex(message.GetIE(0x28)), "6263");
  EXPECT_EQ(hex(message.GetIE(Q931::UserUserIE)), "aabbcc");
  EXPECT_FALSE(message.HasIE(Q931::CalledPartyNumberIE));
  EXPECT_FALSE(message.HasIE(0x100));
  // What stands in front of a fault is there; nothing of the message before is.
  for (const char* fault : {"28", "280261", "7e00", "7e0000", "7e0001", "7e000305aa"}) {
    SCOPED_TRACE(fault);
    EXPECT_FALSE(message.decode((std::string("0802000105040188") + fault).c_str()));
    EXPECT_TRUE(message.HasIE(4));
    EXPECT_FALSE(message.HasIE(0x28));
    EXPECT_FALSE(message.HasIE(Q931::UserUserIE));
  }
  EXPECT_FALSE(message.decode("08"));
  EXPECT_FALSE(message.HasIE(4));
}

TEST(Q931, PartyNumbers) {
  const auto called = [](const char* element) {
    return Message((std::string("080200010570") + element).c_str()).GetCalledPartyNumber();
  };
  EXPECT_EQ(called("0381"
                   "3132"),
            "12");
  EXPECT_EQ(called("0401"
                   "803132"),
            "12");
  EXPECT_EQ(called("0501"
                   "00003132"),
            "12");  // octet 3b is there when 3a has bit 8 clear
  EXPECT_EQ(called("0681"
                   "3132003334"),
            "12");
  for (const char* none : {"00", "0101", "020100", "0181", "020180"}) EXPECT_EQ(called(none), "") << none;
  EXPECT_EQ(Message("0802000105"
                    "6c03813132")
                .GetCallingPartyNumber(),
            "12");
  EXPECT_EQ(Message("0802000105").GetCallingPartyNumber(), "");
}

}  // namespace
