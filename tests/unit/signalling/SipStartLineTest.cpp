#include "signalling/SipStartLine.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

using namespace voip;

TEST(SipAnyUri, TakesARequestLineAndNothingElse) {
  const auto isRequest = [](std::string_view text) {
    const std::vector<u_char> exact(text.begin(), text.end());  // so that a sanitizer finds a read beyond the end
    return isSipRequestWithAnyUri(exact);
  };
  for (const std::string_view line :
       {"INVITE tel:+1555 SIP/2.0", "OPTIONS sips:a@b SIP/2.0\n", "x-.!%*_+`'~1 urn:service:sos sip/2.0\r\nFrom: x y",
        "\r\n\r\nMESSAGE im:b\xc3\xa9@c SIP/2.0\r\n", "SUBSCRIBE a+b.c-d:x SIP/2.0\r\n"}) {
    EXPECT_TRUE(isRequest(line)) << line;
    // A line is no request before its version is complete.
    for (std::size_t size = 0; size < line.find("/2.0") + 4; ++size) EXPECT_FALSE(isRequest(line.substr(0, size)));
  }
  for (const std::string_view line :
       {"INVITE tel:1 SIP/2.1\r\n", "INVITE tel:1 SIP/2.0 \r\n", "INVITE  tel:1 SIP/2.0\r\n",
        "INVITE tel:1\tSIP/2.0\r\n", "INVITE tel:1 2 SIP/2.0\r\n", "INVITE tel: SIP/2.0\r\n", "INVITE :1 SIP/2.0\r\n",
        "INVITE 1:1 SIP/2.0\r\n", "INVITE te(l:1 SIP/2.0\r\n", "INVITE tel\r\n:1 SIP/2.0\r\n", "IN@VITE tel:1 SIP/2.0",
        " INVITE tel:1 SIP/2.0", "GET http://a/ HTTP/1.1\r\n", "SIP/2.0 200 OK\r\n", "\x80\x08 tel:1 SIP/2.0\r\n"}) {
    EXPECT_FALSE(isRequest(line)) << line;
  }
}

TEST(SipStartLine, OfAStreamIsRecognisedAsFarAsItGoes) {
  const auto likeness = [](const std::string_view text) {
    const std::vector<u_char> exact(text.begin(), text.end());
    return beginsSip(exact);
  };
  for (const std::string_view line :
       {"INVITE tel:+1555 SIP/2.0\r\n", "x-.!%*_+`'~1 urn:a:b sip/2.0\n", "sip/2.0 200"}) {
    EXPECT_EQ(likeness(line), Likeness::kYes) << line;
    const std::size_t decisive = line.find('\n') == line.npos ? 8 : line.size();
    for (std::size_t size = 0; size < decisive; ++size) {
      EXPECT_EQ(likeness(line.substr(0, size)), Likeness::kPerhaps) << line.substr(0, size);
    }
  }
  for (const std::string_view line :
       {"SIP/2.00", "SIP/2.1 ", "INVITE  a", "INVITE 1", "INVITE sip: S", "INVITE sip:a HTTP", "IN@", "\r\n", "\x03",
        "INVITE sip:a SIP/2.0 ", "abcdefghijabcdefghijabcdefghijabc"}) {
    EXPECT_EQ(likeness(line), Likeness::kNo) << line;
  }
  EXPECT_EQ(likeness("INVITE sip:" + std::string(9'000, 'a')), Likeness::kNo) << "no line is that long";
}
