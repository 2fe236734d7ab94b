#pragma once

#include <sys/types.h>

#include "PString.h"

class H323Parser {
 public:
  virtual ~H323Parser() = default;
  bool parseH323(u_char*, int, int, const u_int&, const u_int&, const u_int&, const u_int&, PString&) { return false; }
  void setTraceSignalling(bool) {}
  void displayCallIdMap() {}
};
