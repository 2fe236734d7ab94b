#pragma once

#include <sys/types.h>

/// Recognises SIP messages (RFC 3261) by their first bytes.
///
/// The payload is a pointer only: it carries no length and no terminator. No test reads more than 20 bytes; the caller
/// hands in a buffer that is readable so far.
class SipHelper {
 public:
  virtual ~SipHelper() = default;

  /// True when the payload starts like a SIP request: its second word starts with "sip:" in any case. The method is not
  /// looked at, so that new methods need no new sniffer.
  bool isRequest(const u_char* payload);

  /// The test behind isRequest(). The first word and the white space around it may take up 16 bytes at most.
  bool isRequestQuick(const u_char* payload);

  /// The strict test: one of the methods of `sipReq`, white space, then "sip:". Switched off in isRequest().
  bool isRequestFull(const u_char* payload);

  /// True when the payload starts with "SIP/2.0" in any case.
  bool isResponse(const u_char* payload);

  /// Compares exactly `n` bytes of each side, ignoring case: 0 when they are equal, else 1 when `a` is greater at the
  /// first difference, or -1.
  int memcmpNocase(const u_char* a, const u_char* b, int n);

  /// Copies the first four bytes of the second word, whatever they are, and a zero byte to `out` (five bytes). At most
  /// `limit` - 1 bytes are skipped to find it.
  void getSecondWord(u_char* out, const u_char* in, int limit);

  /// Copies the first two words, joined by one blank and ended by a zero byte, to `out` (`limit` + 1 bytes). At most
  /// `limit` - 1 bytes are read.
  void removeWhiteOnce(u_char* out, const u_char* in, int limit);

  static const int sipReqLen = 17;
  static const char* const sipReq[sipReqLen + 1];  ///< methods at 1 to `sipReqLen`; 0 is a placeholder
  static const char* const sipRes;
  static const char* const sipPrefix;
};
