#include "signalling/SipHelper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

/// The text in a buffer of as many bytes as a test may read, so that the sanitizer finds a read beyond them.
struct Payload {
  explicit Payload(const std::string& text) : start(new u_char[20]()) {
    std::copy_n(text.begin(), std::min<std::size_t>(text.size(), 20), start);
  }
  ~Payload() { delete[] start; }
  u_char* start;
};

TEST(SipHelper, RecognisesStartLines) {
  enum { kNone, kQuick, kFull, kResponse };  // a full request passes the quick test as well
  const std::string word15(15, 'x');
  const struct {
    std::string line;
    int kind;
  } cases[] = {
      {"INVITE sip:alice.example SIP/2.0", kFull},
      {"invite   SIP:bob.host SIP/2.0", kFull},
      {"PUBLISH sip:x", kFull},
      {"SUBSCRIBE sip:x", kFull},
      {"  BYE sip:x", kFull},
      {"ACK\r\nsip:x", kFull},
      {"FOO sip:x", kQuick},
      {"<Invalid method> sip:x", kNone},
      {"INVITE tel:+1555 SIP/2.0", kNone},
      {"INVITE sips:alice", kNone},
      {"sip:x INVITE", kNone},
      {word15 + " sip:", kQuick},
      {word15 + "x sip:", kNone},
      {word15 + "  sip:", kNone},
      {"\t" + word15 + " sip:", kNone},
      {"               \tsip:", kQuick},  // all white: the budget ends directly before "sip:"
      {"SIP/2.0 200 OK", kResponse},
      {"sip/2.0 180 Ringing", kResponse},
      {" SIP/2.0 200 OK", kNone},
      {"SIP/2.1 200 OK", kNone},
      {"", kNone},
      {std::string("\x80\x08\xFF\xFF", 4) + std::string(16, '\xD5'), kNone},
  };
  SipHelper helper;
  for (const auto& [line, kind] : cases) {
    const Payload payload(line);
    EXPECT_EQ(helper.isRequest(payload.start), kind == kQuick || kind == kFull) << line;
    EXPECT_EQ(helper.isRequestFull(payload.start), kind == kFull) << line;
    EXPECT_EQ(helper.isResponse(payload.start), kind == kResponse) << line;
  }
}

TEST(SipHelper, ComparesAndCopiesWords) {
  SipHelper helper;
  const auto compare = [&](const char* a, const char* b, int n) {
    return helper.memcmpNocase(reinterpret_cast<const u_char*>(a), reinterpret_cast<const u_char*>(b), n);
  };
  EXPECT_EQ(compare("abc", "ABD", 3), -1);
  EXPECT_EQ(compare("abd", "ABC", 3), 1);
  EXPECT_EQ(compare("abd", "ABC", 2), 0);
  // NOLINTNEXTLINE(bugprone-string-literal-with-embedded-nul): the function takes a length
  EXPECT_EQ(compare("a\0b", "A\0c", 3), -1) << "a zero byte ends nothing";
  EXPECT_EQ(compare("a", "b", 0), 0);
  EXPECT_EQ(compare("\xE4", "z", 1), 1) << "bytes are unsigned";

  u_char out[18];
  helper.removeWhiteOnce(out, Payload("invite   sip:bob.host").start, 17);
  EXPECT_STREQ(reinterpret_cast<char*>(out), "invite sip:bob");
  helper.removeWhiteOnce(out, Payload("0123456789abcdefghi").start, 17);
  EXPECT_STREQ(reinterpret_cast<char*>(out), "0123456789abcdef ");
  helper.getSecondWord(out, Payload(" \t one  two three").start, 17);
  EXPECT_STREQ(reinterpret_cast<char*>(out), "two ");
}

}  // namespace
