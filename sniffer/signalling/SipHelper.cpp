#include "signalling/SipHelper.h"

#include <cstring>
#include <string>

namespace {

constexpr bool kQuickTestOnly = true;
constexpr int kStartLineLimit = 17;

// isspace() and toupper() of the C locale as inline functions: the test of a datagram calls them twenty times.
constexpr bool isWhite(u_char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr int upper(u_char c) {
  return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c;
}

const u_char* bytes(const char* text) {
  return reinterpret_cast<const u_char*>(text);
}

}  // namespace

const char* const SipHelper::sipReq[] = {
    "<Invalid method>", "INVITE", "ACK",   "BYE",   "CANCEL",   "DO",     "INFO",      "MESSAGE", "NOTIFY",
    "OPTIONS",          "PRACK",  "QAUTH", "REFER", "REGISTER", "SPRACK", "SUBSCRIBE", "UPDATE",  "PUBLISH"};
const char* const SipHelper::sipRes = "SIP/2.0";
const char* const SipHelper::sipPrefix = "sip:";

bool SipHelper::isRequest(const u_char* payload) {
  return kQuickTestOnly ? isRequestQuick(payload) : isRequestFull(payload);
}

bool SipHelper::isRequestQuick(const u_char* payload) {
  u_char word[5];
  getSecondWord(word, payload, kStartLineLimit);
  return memcmpNocase(bytes(sipPrefix), word, 4) == 0;
}

bool SipHelper::isRequestFull(const u_char* payload) {
  u_char line[kStartLineLimit + 1] = {};
  removeWhiteOnce(line, payload, kStartLineLimit);
  for (int i = 1; i <= sipReqLen; ++i) {
    const std::string pattern = std::string(sipReq[i]) + " " + sipPrefix;
    if (memcmpNocase(bytes(pattern.c_str()), line, static_cast<int>(pattern.size())) == 0) return true;
  }
  return false;
}

bool SipHelper::isResponse(const u_char* payload) {
  return memcmpNocase(bytes(sipRes), payload, static_cast<int>(std::strlen(sipRes))) == 0;
}

int SipHelper::memcmpNocase(const u_char* a, const u_char* b, int n) {
  for (int i = 0; i < n; ++i) {
    const int left = upper(a[i]);
    const int right = upper(b[i]);
    if (left != right) return left > right ? 1 : -1;
  }
  return 0;
}

void SipHelper::getSecondWord(u_char* out, const u_char* in, int limit) {
  int budget = limit - 1;
  while (budget >= 1 && isWhite(*in)) ++in, --budget;
  while (budget >= 1 && !isWhite(*in)) ++in, --budget;
  while (budget >= 1 && isWhite(*in)) ++in, --budget;
  std::memcpy(out, in, 4);
  out[4] = 0;
}

void SipHelper::removeWhiteOnce(u_char* out, const u_char* in, int limit) {
  int budget = limit - 1;
  while (budget >= 1 && isWhite(*in)) ++in, --budget;
  while (budget >= 1 && !isWhite(*in)) *out++ = *in++, --budget;
  *out++ = ' ';
  while (budget >= 1 && isWhite(*in)) ++in, --budget;
  while (budget >= 1 && !isWhite(*in)) *out++ = *in++, --budget;
  *out = 0;
}
