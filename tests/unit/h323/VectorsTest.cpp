// Whole calls, and messages over the whole of both schemas that another encoder made.

#include "Vectors.h"

#include <gtest/gtest.h>

#include "H225.h"
#include "H245.h"
#include "OpalGloballyUniqueID.h"
#include "PIPSocket.h"
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

// The first line of a description that begins with `tag`, without it.
std::string lineOf(const std::string& text, const std::string& tag) {
  const size_t begin = ("\n" + text).find("\n" + tag);
  if (begin == std::string::npos) return "(no line " + tag + ")";
  return text.substr(begin + tag.size(), text.find('\n', begin) - begin - tag.size());
}

std::string str(const PString& text) {
  return static_cast<const char*>(text);
}

std::string callIdOf(const H225_H323_UU_PDU_h323_message_body& body) {
  const auto id = [](const auto& uuie) -> std::string {
    if (!uuie || !uuie->callIdentifier()) return "";
    return str(OpalGloballyUniqueID(uuie->callIdentifier()->guid()).AsString());
  };
  const auto always = [](const auto& uuie) -> std::string {
    return uuie ? str(OpalGloballyUniqueID(uuie->callIdentifier().guid()).AsString()) : "";
  };
  return id(body.setup()) + id(body.callProceeding()) + id(body.connect()) + id(body.alerting()) +
         id(body.information()) + id(body.releaseComplete()) + id(body.facility()) + always(body.progress()) +
         always(body.setupAcknowledge());
}

std::string aliasOf(const std::optional<H225_ArrayOf_AliasAddress>& aliases, const PString& number) {
  if (!aliases || aliases->IsEmpty()) return str(number);
  return str(H323GetAliasAddressString(*aliases->begin()));
}

// What a channel is described as, without the number in front and the line feed behind it.
std::string mediaOf(const H245_DataType& dataType, const char* tag,
                    const std::optional<H245_H2250LogicalChannelParameters>& parameters) {
  PStringStream text;
  if (const auto audio = dataType.audioData()) {
    const bool isG711 = audio->GetTag() == H245_AudioCapability::e_g711Alaw64k ||
                        audio->GetTag() == H245_AudioCapability::e_g711Ulaw64k;
    text << tag << audio->GetTagName() << ' ' << (isG711 ? audio->integer() : 0) << ',';
  }
  const auto channel = parameters ? parameters->mediaChannel() : std::nullopt;
  const auto unicast = channel ? channel->unicastAddress() : std::nullopt;
  const auto address = unicast ? unicast->iPAddress() : std::nullopt;
  if (address) text << "rtp:" << PIPSocket::Address(address->network()) << ' ' << address->tsapIdentifier();
  return str(text);
}

std::string channelOf(const H245_OpenLogicalChannelView& channel) {
  const auto forward = channel.forwardLogicalChannelParameters();
  std::string text =
      "m:" + std::to_string(channel.forwardLogicalChannelNumber()) + ":" +
      mediaOf(forward.dataType(), "fcodec:", forward.multiplexParameters().h2250LogicalChannelParameters());
  if (const auto reverse = channel.reverseLogicalChannelParameters()) {
    const auto multiplex = reverse->multiplexParameters();
    text +=
        mediaOf(reverse->dataType(), "rcodec:", multiplex ? multiplex->h2250LogicalChannelParameters() : std::nullopt);
  }
  return text + "\n";
}

void expectH245(const Vector& vector, const H245_MultimediaSystemControlMessage& message) {
  const std::string tag = str(message.GetTagName());
  if (const auto request = message.request()) {
    EXPECT_EQ(vector.decodedAs, "h245:request." + str(request->GetTagName()));
    // Not forwarded when the call is not known; then the text ends early.
    const auto channel = request->openLogicalChannel();
    if (channel && vector.text.find("m:") != std::string::npos) {
      EXPECT_NE(vector.text.find(channelOf(*channel)), std::string::npos) << vector.text << channelOf(*channel);
    }
  } else {
    EXPECT_EQ(vector.decodedAs, "h245:" + tag);
  }
}

void expectQ931(const Vector& vector, const Q931& message) {
  EXPECT_EQ(lineOf(vector.text, "t:"), std::to_string(message.GetMessageType()));
  EXPECT_EQ(lineOf(vector.text, "r:"), std::to_string(message.GetCallReference()));
  H225_H323_UserInformation information;
  if (!decodes(information, message.GetIE(Q931::UserUserIE))) {
    EXPECT_EQ(vector.decodedAs, "q931");
    return;
  }
  const auto pdu = information.h323_uu_pdu();
  const auto body = pdu.h323_message_body();
  EXPECT_EQ(vector.decodedAs, "q931/" + str(body.GetTagName()));
  const std::string callId = callIdOf(body);
  if (vector.text.find("\nc:") != std::string::npos) {
    EXPECT_EQ(lineOf(vector.text, "c:"), callId);
  } else {
    EXPECT_EQ(callId, "");
  }
  if (const auto setup = body.setup()) {
    EXPECT_EQ(lineOf(vector.text, "s:"), aliasOf(setup->sourceAddress(), message.GetCallingPartyNumber()));
    EXPECT_EQ(lineOf(vector.text, "d:"), aliasOf(setup->destinationAddress(), message.GetCalledPartyNumber()));
    H245_OpenLogicalChannel channel;
    for (const PASN_OctetString& element : setup->fastStart().value_or(H225_ArrayOf_PASN_OctetString())) {
      if (!decodes(channel, element)) continue;
      EXPECT_NE(vector.text.find(channelOf(channel)), std::string::npos) << vector.text << channelOf(channel);
    }
  }
}

TEST(Vectors, DecodeAsWhatTheyAre) {
  H245_MultimediaSystemControlMessage control;
  Q931 q931;
  for (const auto& folder : {kCalls, kMessages}) {
    for (const Vector& vector : vectorsOf(folder)) {
      SCOPED_TRACE(vector.decodedAs + " " + vector.text);
      const bool isH245 = decodes(control, vector.payload());
      ASSERT_EQ(isH245, vector.isH245());
      if (isH245) {
        expectH245(vector, control);
      } else {
        q931.Decode(vector.payload());
        expectQ931(vector, q931);
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
      ASSERT_FALSE(decodes(control, vector.payload())) << vector.text << reference;
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
