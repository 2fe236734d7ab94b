#pragma once

#include <ostream>
#include <string>

#include "../Segments.h"
#include "H323Parser.h"

struct Description {
  bool forwarded = false;
  std::string text;

  bool operator==(const Description&) const = default;
  friend std::ostream& operator<<(std::ostream& stream, const Description& description) {
    return stream << (description.forwarded ? "forwarded " : "not forwarded ") << description.text;
  }
};

inline Description describe(H323Parser& parser, Segment segment) {
  PString text;
  const bool forwarded =
      parser.parseH323(segment.payload.data(), static_cast<int>(segment.payload.size()), kHeaderLength, segment.tx_ip,
                       segment.rx_ip, segment.tx_port, segment.rx_port, text);
  return {forwarded, static_cast<const char*>(text)};
}
