#pragma once

#include <arpa/inet.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "h323/base/PBYTEArray.h"

/// The space for a frame header before each segment, and the length of the TPKT header after it.
constexpr int kHeaderLength = 15;
constexpr std::size_t kTpktLength = 4;

/// A TCP segment of recorded signalling and its expected description.
struct Segment {
  u_int tx_ip = 0;  ///< network order, like rx_ip
  u_int rx_ip = 0;
  u_int tx_port = 0;
  u_int rx_port = 0;
  std::vector<u_char> payload;  ///< after kHeaderLength octets of space
  bool forwarded = false;
  std::string text;
  std::string decodedAs;  ///< "h245:..." or "q931..."

  PBYTEArray message() const {
    constexpr std::size_t kFront = kHeaderLength + kTpktLength;
    return PBYTEArray(payload.data() + kFront, payload.size() - kFront);
  }
  bool isH245() const { return decodedAs.starts_with("h245"); }
};

inline std::vector<std::uint8_t> fromHex(std::string_view text) {
  std::vector<std::uint8_t> octets;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    octets.push_back(static_cast<std::uint8_t>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16)));
  }
  return octets;
}

inline std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The segments of a recording below tests/data, with the expectations in the file next to it.
inline std::vector<Segment> readSegments(const std::string& recording) {
  std::vector<Segment> segments;
  std::ifstream segmentLines(TEST_FILES "/" + recording + ".segments");
  std::ifstream expectedLines(TEST_FILES "/" + recording + ".expected");
  std::string source, destination, octets, forwarded, text;
  Segment segment;
  while (segmentLines >> source >> segment.tx_port >> destination >> segment.rx_port >> octets &&
         std::getline(expectedLines, forwarded, '\t') && std::getline(expectedLines, text, '\t') &&
         std::getline(expectedLines, segment.decodedAs)) {
    segment.tx_ip = inet_addr(source.c_str());
    segment.rx_ip = inet_addr(destination.c_str());
    segment.payload = fromHex(std::string(2 * kHeaderLength, '0') + octets);
    segment.forwarded = forwarded == "true";
    // Line feeds are written as a backslash and an n.
    for (std::size_t at = 0; (at = text.find("\\n", at)) != text.npos; ++at) text.replace(at, 2, 1, '\n');
    segment.text = text;
    segments.push_back(segment);
  }
  if (segments.empty()) throw std::runtime_error("no segments in " + recording);
  return segments;
}

constexpr const char* kCalls[] = {"h323/h323-fast-start-separate", "h323/h323-fast-start-tunnelled",
                                  "h323/h323-h245-separate", "h323/h323-h245-tunnelled"};
constexpr const char* kRandom = "signalling/h323-random";  ///< every message of both recommendations

/// The first segment whose expected text begins with `beginning` and contains `further`.
inline Segment segmentOf(const char* recording, std::string_view beginning, std::string_view further = "") {
  for (Segment& segment : readSegments(recording)) {
    if (segment.text.starts_with(beginning) && segment.text.find(further) != std::string::npos) return segment;
  }
  throw std::runtime_error(recording + std::string(" has no ") + std::string(beginning));
}
