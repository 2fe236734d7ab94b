#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "PBYTEArray.h"

// The signalling of whole calls: what each TCP segment holds, and what it is expected to be decoded as.
struct Vector {
  std::vector<uint8_t> octets;  // behind the TPKT header
  std::string decodedAs;        // "h245:..." or "q931..."

  PBYTEArray payload() const { return PBYTEArray(octets.data(), octets.size()); }
  bool isH245() const { return decodedAs.starts_with("h245"); }
};

inline std::vector<uint8_t> fromHex(std::string_view text) {
  std::vector<uint8_t> octets;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    octets.push_back(static_cast<uint8_t>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16)));
  }
  return octets;
}

inline std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

inline std::vector<Vector> loadVectors(const std::filesystem::path& segments) {
  std::vector<Vector> vectors;
  std::ifstream segmentLines(segments);
  std::ifstream expectedLines(std::filesystem::path(segments).replace_extension(".expected"));
  std::string segment;
  std::string expected;
  while (std::getline(segmentLines, segment) && std::getline(expectedLines, expected)) {
    Vector vector;
    constexpr size_t kTpktDigits = 8;
    vector.octets = fromHex(std::string_view(segment).substr(segment.rfind(' ') + 1 + kTpktDigits));
    vector.decodedAs = expected.substr(expected.rfind('\t') + 1);
    vectors.push_back(std::move(vector));
  }
  return vectors;
}
