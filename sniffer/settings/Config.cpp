#include "settings/Config.h"

#include "base/Logger.h"

#include <cstdlib>
#include <fstream>
#include <utility>

using namespace voip;

Config* Config::config_ = nullptr;

Config* Config::dft() {
  if (config_ == nullptr) config_ = new Config;
  return config_;
}

void Config::setCfgFileName(std::string fileName) {
  cfgFileName_ = std::move(fileName);
}

void Config::loadProperties() {
  std::ifstream file(cfgFileName_);
  if (!file) failToRead();
  loadLines(file, cfgFileName_);
  // A directory can be opened but not read.
  if (file.bad()) failToRead();
}

void Config::loadLines(std::istream& text, const std::string& name) {
  lines_.clear();
  ignoredLines_.clear();
  std::string line;
  for (int number = 1; std::getline(text, line); ++number) {
    if (line.size() > kMaxLineLength) {
      logger().warn("Line " + std::to_string(number) + " of " + name + " is longer than " +
                    std::to_string(kMaxLineLength) + " characters and is ignored");
      ignoredLines_.push_back({number, line.substr(0, line.find('='))});
      continue;
    }
    addLine(line, number);
  }
}

void Config::addLine(const std::string& line, int number) {
  const auto equals = line.find('=');
  if (equals == std::string::npos) return;
  lines_.push_back({number, line.substr(0, equals)});
  properties_.emplace(lines_.back().key, trim(line.substr(equals + 1)));
}

void Config::failToRead() {
  logger().error("Can't open configuration file " + cfgFileName_);
  std::exit(1);
}

std::string Config::getProperty(std::string key) {  // NOLINT(performance-unnecessary-value-param): published signature
  return getPropertyText(key);
}

const std::string& Config::getPropertyText(const std::string& key) {
  return properties_[key];
}

std::string Config::trim(const std::string& s) {
  constexpr const char* kWhite = " \r\n\t";
  const auto first = s.find_first_not_of(kWhite);
  if (first == std::string::npos) return {};
  return s.substr(first, s.find_last_not_of(kWhite) - first + 1);
}
