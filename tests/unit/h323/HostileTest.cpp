// Input that no correct encoder writes: false lengths, bombs, and the limits of the decoder. The fuzzers and the
// parser's tests cover damaged messages.

#include <gtest/gtest.h>

#include <memory>

#include "h323/messages/H225.h"
#include "h323/messages/H245.h"

namespace {

using Octets = std::vector<std::uint8_t>;
using asn1::Effort;
using asn1::Value;

/// A type decoded from exactly these octets, which are on the heap so that a sanitizer finds a read beyond them.
class Decoded {
 public:
  Decoded(const asn1::Type& type, Octets octets, std::uint32_t steps = Effort::kSteps) : octets_(std::move(octets)) {
    octets_.shrink_to_fit();
    Effort effort;
    effort.spend(Effort::kSteps - steps);
    PPER_Stream stream(PBYTEArray(octets_.data(), octets_.size()), effort);
    value_ = &asn1::decode(type, stream, *arena_);
    EXPECT_EQ(stream.failed(), failed());
    spent = steps - effort.left();
  }
  const Value& operator*() const { return *value_; }
  const Value* operator->() const { return value_; }
  bool failed() const { return value_->type == nullptr; }
  std::uint32_t spent = 0;

 private:
  Octets octets_;
  std::unique_ptr<asn1::Arena> arena_{new asn1::Arena};
  const Value* value_ = nullptr;
};

Octets concat(std::initializer_list<Octets> parts) {
  Octets all;
  for (const Octets& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// Numbers at the limits of each coding.
TEST(Hostile, Numbers) {
  const asn1::Type &any = asn1::Integer<>, &positive = asn1::Integer<1, asn1::kMax>;
  EXPECT_EQ(Decoded(asn1::Integer<0, 9>, {0x90})->number, 9);
  EXPECT_EQ(Decoded(asn1::Integer<1, 256>, {0xFF})->number, 256);
  EXPECT_EQ(Decoded(asn1::Integer<0, 16777215>, {0x80, 1, 2, 3})->number, 0x010203);
  EXPECT_EQ(Decoded(any, {2, 0x80, 0})->number, -32768);
  EXPECT_EQ(Decoded(any, {9, 0xFF, 0x80, 0, 0, 0, 0, 0, 0, 0})->number, INT64_MIN);
  EXPECT_EQ(Decoded(any, {9, 0x80, 0, 0, 0, 0, 0, 0, 0, 0})->number, INT64_MIN);
  EXPECT_EQ(Decoded(any, {9, 0x7F, 0, 0, 0, 0, 0, 0, 0, 0})->number, INT64_MAX);
  EXPECT_EQ(Decoded(positive, {9, 1, 0, 0, 0, 0, 0, 0, 0, 0})->number, INT64_MAX);
  EXPECT_TRUE(Decoded(asn1::Integer<0, 9>, {0xA0}).failed());
  EXPECT_TRUE(Decoded(asn1::Integer<1, 65535>, {0xFF, 0xFF}).failed());
  EXPECT_TRUE(Decoded(asn1::Integer<0, 16777215>, {0xC0, 1, 2, 3, 4}).failed());
  EXPECT_TRUE(Decoded(asn1::Integer<1, 4294967295>, {0xC0, 0xFF, 0xFF, 0xFF, 0xFF}).failed());
  for (const std::uint8_t length : {0x00, 0xC1}) {
    EXPECT_TRUE(Decoded(any, {length}).failed() && Decoded(positive, {length}).failed());
  }
}

TEST(Hostile, Lengths) {
  const asn1::Type& any = asn1::OctetString<>;
  EXPECT_EQ(Decoded(any, {0})->length, 0);
  for (const Octets& octets : {Octets{}, {1}, {0x80}, {0xBF, 0xFF}, {0xC0, 0, 0}, {0xC1, 0, 0}, {0xC5, 0}, {0xFF, 0}}) {
    EXPECT_TRUE(Decoded(any, octets).failed());
  }
  // The decoder joins fragments. A fragment without a length after it is incomplete.
  const Octets fragment(16384, 0x5A);
  const Decoded whole(any, concat({{0xC1}, fragment, {0xC1}, fragment, {2, 1, 2}}));
  ASSERT_EQ(whole->length, 2 * 16384 + 2);
  EXPECT_EQ(whole->octets[2 * 16384 + 1], 2);
  EXPECT_TRUE(Decoded(any, concat({{0xC1}, fragment})).failed());
  EXPECT_EQ(Decoded(asn1::BitString<>, concat({{0xC1}, Octets(2048, 0xFF), {3, 0xE0}}))->length, 16384 + 3);
  // Copied octets have a limit.
  EXPECT_TRUE(Decoded(any, concat({{0xC4}, Octets(65536), {1, 1}})).failed());

  // Characters of four bits, some of which are not in the alphabet.
  const auto& digits = asn1::IA5StringFrom<asn1::h245::kDialedDigits, 1, 128>;
  const Decoded text(digits, {0x18, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xC0});  // 13 of them
  EXPECT_EQ(asn1::text(*text), "#*,0123456789");
  EXPECT_TRUE(Decoded(digits, {0, 0xD0}).failed());
  EXPECT_TRUE(Decoded(asn1::IA5StringFrom<asn1::h245::kSignalTypes, 1>, {'E'}).failed());
}

inline constexpr asn1::Sequence kOlder({{"number", asn1::Integer<0, 255>}, asn1::kExtensible, {"flag", asn1::Boolean}});
inline constexpr asn1::Choice kAlternatives(
    {{"one", asn1::Null}, {"two", asn1::Null}, asn1::kExtensible, {"three", asn1::Boolean}});

// The decoder skips additions of a later version by their length, and nothing else.
TEST(Hostile, Extensions) {
  // Additions: the flag in 3 octets and an unknown one in 2.
  const Decoded later(kOlder, {0x80, 7, 0x03, 0x80, 3, 0x80, 0xFF, 0xFF, 2, 0xFF, 0xFF});
  ASSERT_FALSE(later.failed());
  EXPECT_EQ(later->child->number, 7);
  ASSERT_NE(later->child->next, nullptr);
  EXPECT_EQ(later->child->next->number, 1);
  EXPECT_EQ(later->child->next->next, nullptr);
  EXPECT_TRUE(Decoded(kOlder, {0x80, 7, 0x03, 0x80, 3, 0x80, 0xFF, 0xFF, 3, 0xFF, 0xFF}).failed());
  EXPECT_TRUE(Decoded(kOlder, {0x80, 7, 0x03, 0x80, 0, 2, 0xFF, 0xFF}).failed());  // no octet for the flag
  EXPECT_TRUE(Decoded(kOlder, {0x80, 7, 0xFF}).failed());                          // more additions than octets
  EXPECT_TRUE(Decoded(kOlder, {0x80, 7, 0x80, 0}).failed());                       // a list of no additions
  // An addition may be in fragments.
  EXPECT_EQ(Decoded(kOlder, concat({{0x80, 7, 0x01, 0xC1, 0x80}, Octets(16383), {1, 0}}))->child->next->number, 1);

  EXPECT_EQ(Decoded(kAlternatives, {0x80, 1, 0x80})->child->number, 1);
  const Decoded unknown(kAlternatives, {0x85, 2, 0xAB, 0xCD});
  EXPECT_EQ(unknown->length, 7);
  EXPECT_EQ(unknown->child->length, 2);
  EXPECT_FALSE(Decoded(kAlternatives, concat({{0xC0, 9}, Octets(9, 0xFF), {0}})).failed());
  EXPECT_TRUE(Decoded(kAlternatives, {0x85, 3, 0xAB, 0xCD}).failed());
}

extern inline const asn1::Choice<2> kNested;
inline constexpr asn1::Choice<2> kNested({{"deeper", kNested}, {"end", asn1::Null}});

// Limits of memory, of depth, and of work that is out of proportion to the octets: 16,383 presence bits, or thousands
// of unknown additions.
TEST(Hostile, BombsEndAtTheLimits) {
  // One bit nests one level.
  EXPECT_FALSE(Decoded(kNested, {0x00, 0x00, 0x80}).failed());
  EXPECT_TRUE(Decoded(kNested, Octets(100)).failed());
  // 4,096 octets make 4,096 lists of 127 NULLs, because a NULL takes no bits.
  const auto& lists = asn1::SequenceOf<asn1::SequenceOf<asn1::Null>>;
  EXPECT_TRUE(Decoded(lists, concat({{0x90, 0x00}, Octets(4096, 127)})).failed());
  EXPECT_TRUE(Decoded(asn1::SequenceOf<asn1::Null>, {0xBF, 0xFF}).failed());
  EXPECT_TRUE(Decoded(asn1::SequenceOf<asn1::Null>, {0xC4}).failed());
  EXPECT_EQ(Decoded(asn1::SequenceOf<asn1::Null>, {0x8F, 0xFF})->length, asn1::Arena::kMaxValues - 1);

  const Octets lying{0x80, 7, 0x80, 0xBF, 0xFF, 0xFF};
  EXPECT_LT(Decoded(kOlder, lying).spent, 100);
  const Octets additions = concat({{0x80, 7, 0x80, 0x88, 0x00, 0x7F}, Octets(255, 0xFF), Octets(2047)});
  const Decoded bomb(kOlder, additions, 1000);
  EXPECT_TRUE(bomb.failed());
  EXPECT_EQ(bomb.spent, 1000);
}

TEST(Hostile, AbsentValuesRead) {
  H245_OpenLogicalChannel channel;
  const auto forward = channel.forwardLogicalChannelParameters();
  EXPECT_EQ(channel.forwardLogicalChannelNumber(), 0);
  EXPECT_FALSE(channel.reverseLogicalChannelParameters() ||
               forward.multiplexParameters().h2250LogicalChannelParameters());
  EXPECT_EQ(forward.dataType().GetTag(), PASN_Choice::kNoTag);
  EXPECT_EQ(forward.dataType().GetTagName() + H225_AliasAddress().AsString(), "");
  EXPECT_EQ(H225_Progress_UUIE().callIdentifier().guid().GetValue().GetSize(), 0);
  EXPECT_TRUE(H225_ArrayOf_PASN_OctetString().IsEmpty());
  PStringStream printed;
  printed << channel;
  EXPECT_EQ(printed.view(), "<<absent>>");
}

}  // namespace
