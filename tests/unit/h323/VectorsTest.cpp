// Whole calls, and messages over the whole of both schemas that another encoder made.

#include "Vectors.h"

#include <gtest/gtest.h>

#include "H225.h"
#include "H245.h"
#include "Q931.h"

namespace {

const std::filesystem::path kCalls = TEST_FILES "/h323";
const std::filesystem::path kMessages = TEST_FILES "/parser";

std::vector<Vector> vectorsOf(const std::filesystem::path& folder) {
  std::vector<Vector> all;
  for (const auto& file : filesWith(folder, ".segments")) {
    const auto vectors = loadVectors(file);
    EXPECT_FALSE(vectors.empty()) << file;
    all.insert(all.end(), vectors.begin(), vectors.end());
  }
  return all;
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
  for (const auto& folder : {kCalls, kMessages}) {
    for (const Vector& vector : vectorsOf(folder)) {
      if (decodes(control, vector.payload())) {
        EXPECT_EQ(kindOf(control), vector.decodedAs);
      } else {
        q931.Decode(vector.payload());
        EXPECT_EQ(kindOf(q931), vector.decodedAs);
      }
    }
  }
}

// H.245 is tried first, on every segment.
TEST(Vectors, NoCallReferenceMakesQ931LookLikeH245) {
  H245_MultimediaSystemControlMessage control;
  const auto expectNoH245 = [&](Vector& vector, unsigned step) {
    for (unsigned reference = 0; reference < 0x10000 && !vector.isH245(); reference += step) {
      vector.octets[2] = static_cast<uint8_t>(reference >> 8);
      vector.octets[3] = static_cast<uint8_t>(reference);
      ASSERT_FALSE(decodes(control, vector.payload())) << vector.decodedAs << ", call reference " << reference;
    }
  };
  for (Vector& vector : vectorsOf(kCalls)) expectNoH245(vector, 1);
  for (Vector& vector : vectorsOf(kMessages)) expectNoH245(vector, 61);
}

// The printed form of whole calls, exactly.
TEST(Vectors, PrintAsTraced) {
  size_t traces = 0;
  for (const auto& file : filesWith(kCalls, ".trace")) {
    SCOPED_TRACE(file);
    ++traces;
    std::string printed;
    const auto print = [&](const char* title, const auto& message) {
      PStringStream text;
      text << title << message << '\n';
      printed += str(text);
    };
    H245_MultimediaSystemControlMessage control;
    Q931 q931;
    H225_H323_UserInformation information;
    for (const Vector& vector : loadVectors(std::filesystem::path(file).replace_extension(".segments"))) {
      if (decodes(control, vector.payload())) {
        print("\n=== H245 Message ===\n", control);
        continue;
      }
      q931.Decode(vector.payload());
      print("\n=== Q931 Message ===\n", q931);
      if (!decodes(information, q931.GetIE(Q931::UserUserIE))) continue;
      print("=== H323 Message ===\n", information.h323_uu_pdu());
      if (information.h323_uu_pdu().h323_message_body().GetTag() != H225_H323_UU_PDU_h323_message_body::e_empty)
        continue;
      for (const PASN_OctetString& element :
           information.h323_uu_pdu().h245Control().value_or(H225_ArrayOf_PASN_OctetString())) {
        if (decodes(control, element)) print("=== H245 Message ===\n", control);
      }
    }
    EXPECT_EQ(printed, contentsOf(file));
  }
  EXPECT_EQ(traces, 4);
}

}  // namespace
