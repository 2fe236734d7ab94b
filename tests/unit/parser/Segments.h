#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstddef>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "H323Parser.h"

/// The room for a frame header in front of each segment.
constexpr int kHeaderLength = 15;

/// A TCP segment of recorded signalling, and what is expected to become of it.
struct Segment {
  u_int tx_ip = 0;  // network order
  u_int rx_ip = 0;
  u_int tx_port = 0;
  u_int rx_port = 0;
  std::vector<u_char> payload;  // with the room in front
  bool forwarded = false;
  std::string text;
};

inline Segment readSegment(const std::string& line) {
  Segment segment;
  std::istringstream fields(line);
  std::string source;
  std::string destination;
  std::string octets;
  fields >> source >> segment.tx_port >> destination >> segment.rx_port >> octets;
  segment.tx_ip = inet_addr(source.c_str());
  segment.rx_ip = inet_addr(destination.c_str());
  segment.payload.resize(kHeaderLength);
  for (std::size_t i = 0; i + 1 < octets.size(); i += 2) {
    segment.payload.push_back(static_cast<u_char>(std::stoul(octets.substr(i, 2), nullptr, 16)));
  }
  return segment;
}

/// Line feeds are written as a backslash and an n.
inline std::string withLineFeeds(const std::string& written) {
  std::string text;
  for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 2) {
    end = written.find("\\n", begin);
    text += written.substr(begin, end - begin);
    if (end != std::string::npos) text += '\n';
  }
  return text;
}

/// The segments of a recording below tests/data, and what the file beside it expects of them.
inline std::vector<Segment> readSegments(const std::string& recording) {
  const std::string path = TEST_FILES "/" + recording;
  std::vector<Segment> segments;
  std::ifstream segmentLines(path + ".segments");
  std::ifstream expectedLines(path + ".expected");
  for (std::string line, expected; std::getline(segmentLines, line) && std::getline(expectedLines, expected);) {
    Segment segment = readSegment(line);
    const std::size_t text = expected.find('\t') + 1;
    segment.forwarded = expected.starts_with("true");
    segment.text = withLineFeeds(expected.substr(text, expected.rfind('\t') - text));
    segments.push_back(std::move(segment));
  }
  return segments;
}

constexpr const char* kCalls[] = {"h323/h323-fast-start-separate", "h323/h323-fast-start-tunnelled",
                                  "h323/h323-h245-separate", "h323/h323-h245-tunnelled"};
constexpr const char* kRandom = "parser/h323-random";  // every message of both recommendations

/// The first segment that is described by a text that begins and goes on like this.
inline Segment segmentOf(const char* recording, std::string_view beginning, std::string_view further = "") {
  for (Segment& segment : readSegments(recording)) {
    if (segment.text.starts_with(beginning) && segment.text.find(further) != std::string::npos) return segment;
  }
  ADD_FAILURE() << recording << " has no " << beginning;
  return {};
}

struct Description {
  bool forwarded = false;
  std::string text;

  bool operator==(const Description&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const Description& description) {
  return stream << (description.forwarded ? "forwarded " : "not forwarded ") << description.text;
}

inline Description describe(H323Parser& parser, Segment& segment) {
  PString text;
  const bool forwarded =
      parser.parseH323(segment.payload.data(), static_cast<int>(segment.payload.size()), kHeaderLength, segment.tx_ip,
                       segment.rx_ip, segment.tx_port, segment.rx_port, text);
  return {forwarded, static_cast<const char*>(text)};
}
