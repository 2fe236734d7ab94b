// Random messages over the whole of both schemas: what is decoded is what was encoded.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "H225Schema.h"
#include "H245Schema.h"
#include "PERDecoder.h"
#include "RandomMessage.h"

namespace {

using asn1::Kind;
using asn1::Value;

void expectSame(const Value& decoded, const RandomValue& made) {
  ASSERT_EQ(decoded.type, made.type);
  switch (decoded.type->kind) {
    case Kind::kNull:
      return;
    case Kind::kBoolean:
    case Kind::kInteger:
    case Kind::kEnumerated:
      ASSERT_EQ(decoded.number, made.number);
      return;
    case Kind::kSequence:
    case Kind::kSequenceOf:
    case Kind::kChoice: {
      ASSERT_EQ(decoded.length, made.length);
      const Value* child = decoded.child;
      for (const RandomValue& other : made.children) {
        ASSERT_NE(child, nullptr);
        ASSERT_EQ(child->index, other.index);
        expectSame(*child, other);
        if (testing::Test::HasFatalFailure()) return;
        child = child->next;
      }
      ASSERT_EQ(child, nullptr);
      return;
    }
    default: {
      ASSERT_EQ(decoded.length, made.length);
      std::vector<uint8_t> octets(decoded.octets, decoded.octets + made.octets.size());
      // Behind the last bit of a bit string anything may stand.
      if (decoded.type->kind == Kind::kBitString && made.length % 8 != 0) {
        const auto mask = static_cast<uint8_t>(0xFF << (8 - made.length % 8));
        EXPECT_EQ(octets.back() & mask, made.octets.back() & mask);
        octets.back() = made.octets.back();
      }
      ASSERT_EQ(octets, made.octets);
      return;
    }
  }
}

void roundTrips(const asn1::Type& root, const char* name) {
  RandomValues values(20);
  const auto arena = std::make_unique<asn1::Arena>();
  const auto all = fieldsOf(root);
  constexpr size_t kMessages = 4000;
  for (size_t i = 0; i < kMessages; ++i) {
    const RandomValue made = values.make(root);
    const bool future = i % 4 == 0;
    const std::vector<uint8_t> octets = encode(made, future);
    PPER_Stream stream(PBYTEArray(octets.data(), octets.size()));
    const Value& decoded = asn1::decode(root, stream, *arena);
    ASSERT_FALSE(stream.failed()) << name << " message " << i << " of " << octets.size() << " octets";
    expectSame(decoded, made);
    if (testing::Test::HasFatalFailure()) return;
    // Complete means complete: without its last octet it is none.
    PPER_Stream cut(PBYTEArray(octets.data(), octets.size() - 1));
    asn1::decode(root, cut, *arena);
    EXPECT_TRUE(cut.failed()) << name << " message " << i;
  }
  std::cout << name << ": " << kMessages << " messages, " << values.made().size() << " of " << all.size()
            << " components and alternatives\n";
  EXPECT_EQ(values.made(), all);
}

TEST(RoundTrip, H245) {
  roundTrips(asn1::h245::MultimediaSystemControlMessage, "H.245");
}

TEST(RoundTrip, H225) {
  roundTrips(asn1::h225::H323_UserInformation, "H.225.0");
}

}  // namespace
