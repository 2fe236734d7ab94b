#include "settings/MoreRecorders.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "settings/Config.h"
#include "settings/StringTokenizer.h"

namespace voip {

namespace {

std::optional<RecorderAddress> addressIn(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return std::nullopt;
  RecorderAddress address{text.substr(0, colon)};
  const bool hasBrackets = colon >= 2 && text.front() == '[' && text[colon - 1] == ']';
  if (hasBrackets) address.host = text.substr(1, colon - 2);
  if (hasBrackets != isIpv6Host(address.host) || !isHost(address.host)) return std::nullopt;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, address.port);
  if (stop != end || error != std::errc() || address.port < 1 || address.port > 65535) return std::nullopt;
  return address;
}

}  // namespace

MoreRecorders readMoreRecorders(const std::string& value) {
  MoreRecorders result;
  StringTokenizer texts(value.c_str(), ';');
  while (texts.hasMoreTokens()) {
    const std::string text = Config::trim(texts.nextToken());
    const auto address = addressIn(text);
    if (!address) {
      result.wrong.push_back(
          "\"" + text + "\" is left out: write an address and a port, such as 10.0.0.12:6000 or [2001:db8::12]:6000");
    } else if (std::find(result.addresses.begin(), result.addresses.end(), *address) != result.addresses.end()) {
      result.repeated.push_back("MoreRecorders has " + text + " twice, it gets everything once");
    } else if (result.addresses.size() == MoreRecorders::kMost) {
      result.wrong.push_back(text + " is left out: at most " + std::to_string(MoreRecorders::kMost) +
                             " further recorders are possible");
    } else {
      result.addresses.push_back(*address);
    }
  }
  return result;
}

std::vector<std::string> findRepeatedRecorders(const std::string& value, const RecorderAddress& first) {
  MoreRecorders more = readMoreRecorders(value);
  const auto found = std::find(more.addresses.begin(), more.addresses.end(), first);
  if (found != more.addresses.end()) {
    more.repeated.push_back("MoreRecorders has " + found->text() +
                            ", which is the recorder of ServerName: it gets everything twice");
  }
  return more.repeated;
}

}  // namespace voip
