#pragma once

#include <sys/types.h>

/// Recognises SIP messages (RFC 3261) by their first bytes.
///
/// A payload is a pointer without length and terminator. No test reads more than 20 bytes; 20 bytes must be readable.
class SipHelper {
 public:
  virtual ~SipHelper() = default;

  /// True when the payload starts like a SIP request: its second word starts with "sip:" in any case. The method is not
  /// checked, so new methods are recognised.
  bool isRequest(const u_char* payload);

  /// The test that isRequest() uses. The first word and the white space before and after it may have 16 bytes at most.
  bool isRequestQuick(const u_char* payload);

  /// The strict test: one of the methods of `sipReq`, white space, then "sip:". isRequest() does not use it.
  bool isRequestFull(const u_char* payload);

  /// True when the payload starts with "SIP/2.0" in any case.
  bool isResponse(const u_char* payload);

  /// Compares exactly `n` bytes of each side, ignoring case. Returns 0 when they are equal, otherwise 1 when `a` is
  /// greater at the first difference and -1 when `b` is.
  int memcmpNocase(const u_char* a, const u_char* b, int n);

  /// Copies the first four bytes of the second word, even beyond its end, and a zero byte to `out` (five bytes). Skips
  /// at most `limit` - 1 bytes before them.
  void getSecondWord(u_char* out, const u_char* in, int limit);

  /// Copies the first two words, joined by one blank and terminated by a zero byte, to `out` (`limit` + 1 bytes). Reads
  /// at most `limit` - 1 bytes.
  void removeWhiteOnce(u_char* out, const u_char* in, int limit);

  static const int sipReqLen = 17;
  static const char* const sipReq[sipReqLen + 1];  ///< methods at 1 to `sipReqLen`; 0 is a placeholder
  static const char* const sipRes;
  static const char* const sipPrefix;
};
