// Whole calls, and messages over the whole of both schemas that another encoder made.

#include "Vectors.h"

#include <gtest/gtest.h>

#include "H225.h"
#include "H245.h"
#include "Q931.h"

namespace {

constexpr const char* kCalls[] = {"h323/h323-fast-start-separate", "h323/h323-fast-start-tunnelled",
                                  "h323/h323-h245-separate", "h323/h323-h245-tunnelled"};
constexpr const char* kMessages = "parser/h323-random";

std::filesystem::path fileOf(const char* recording, const char* extension) {
  return std::string(TEST_FILES "/") + recording + extension;
}

std::vector<Vector> vectorsOf(const char* recording) {
  std::vector<Vector> vectors = loadVectors(fileOf(recording, ".segments"));
  EXPECT_FALSE(vectors.empty()) << recording;
  return vectors;
}

bool decodes(auto& message, const PBYTEArray& octets) {
  PPER_Stream stream(octets);
  return message.Decode(stream);
}

std::string str(const PString& text) {
  return static_cast<const char*>(text);
}

// In the words of Vector::decodedAs.
std::string kindOf(const H245_MultimediaSystemControlMessage& message) {
  const auto request = message.request();
  return "h245:" + str(message.GetTagName()) + (request ? "." + str(request->GetTagName()) : "");
}

std::string kindOf(const Q931& message) {
  H225_H323_UserInformation information;
  if (!decodes(information, message.GetIE(Q931::UserUserIE))) return "q931";
  return "q931/" + str(information.h323_uu_pdu().h323_message_body().GetTagName());
}

// What is in them, the parser's tests compare.
TEST(Vectors, DecodeAsWhatTheyAre) {
  H245_MultimediaSystemControlMessage control;
  Q931 q931;
  for (const char* recording : {kCalls[0], kCalls[1], kCalls[2], kCalls[3], kMessages}) {
    for (const Vector& vector : vectorsOf(recording)) {
      const bool isH245 = decodes(control, vector.payload());
      if (!isH245) q931.Decode(vector.payload());
      EXPECT_EQ(isH245 ? kindOf(control) : kindOf(q931), vector.decodedAs);
    }
  }
}

// H.245 is tried first, on every segment.
TEST(Vectors, NoCallReferenceMakesQ931LookLikeH245) {
  H245_MultimediaSystemControlMessage control;
  const auto expectNoH245 = [&](const char* recording, unsigned step) {
    for (Vector& vector : vectorsOf(recording)) {
      for (unsigned reference = 0; reference < 0x10000 && !vector.isH245(); reference += step) {
        vector.octets[2] = static_cast<uint8_t>(reference >> 8);
        vector.octets[3] = static_cast<uint8_t>(reference);
        ASSERT_FALSE(decodes(control, vector.payload())) << vector.decodedAs << ", call reference " << reference;
      }
    }
  };
  for (const char* call : kCalls) expectNoH245(call, 1);
  expectNoH245(kMessages, 61);
}

// As the traces print it: what it is decoded as, and what is tunnelled in it.
void print(std::ostream& text, const Vector& vector) {
  H245_MultimediaSystemControlMessage control;
  if (decodes(control, vector.payload())) {
    text << "\n=== H245 Message ===\n" << control << '\n';
    return;
  }
  Q931 q931;
  q931.Decode(vector.payload());
  text << "\n=== Q931 Message ===\n" << q931 << '\n';
  H225_H323_UserInformation information;
  if (!decodes(information, q931.GetIE(Q931::UserUserIE))) return;
  const auto pdu = information.h323_uu_pdu();
  text << "=== H323 Message ===\n" << pdu << '\n';
  if (pdu.h323_message_body().GetTag() != H225_H323_UU_PDU_h323_message_body::e_empty) return;
  const auto tunnelled = pdu.h245Control().value_or(H225_ArrayOf_PASN_OctetString());
  for (const PASN_OctetString& element : tunnelled) {
    if (decodes(control, element)) text << "=== H245 Message ===\n" << control << '\n';
  }
}

TEST(Vectors, PrintAsTraced) {
  for (const char* call : kCalls) {
    PStringStream printed;
    for (const Vector& vector : vectorsOf(call)) print(printed, vector);
    EXPECT_EQ(printed.view(), contentsOf(fileOf(call, ".trace"))) << call;
  }
}

}  // namespace
