#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "base/HostText.h"

namespace voip {

/// The address of a recorder over TCP.
struct RecorderAddress {
  std::string host;  ///< "10.0.0.12", or "2001:db8::12"
  int port = 0;      ///< in host order

  /// Returns "10.0.0.12:6000", or "[2001:db8::12]:6000".
  std::string text() const { return hostAndPort(host, port); }

  /// True for addresses that lead to the same recorder, whatever their texts.
  bool operator==(const RecorderAddress& other) const {
    return port == other.port && canonicalHost(host) == canonicalHost(other.host);
  }
};

/// The content of the setting MoreRecorders: addresses of the form "10.0.0.12:6000" or "[2001:db8::12]:6000", separated
/// by semicolons.
struct MoreRecorders {
  static constexpr std::size_t kMost = 31;

  std::vector<RecorderAddress> addresses;  ///< those that can be used, each once
  std::vector<std::string> repeated;       ///< a warning for each address that occurs again
  std::vector<std::string> wrong;          ///< a warning for each text that is no address, and for those over kMost
};

/// Reads the value of the setting. Any thread.
MoreRecorders readMoreRecorders(const std::string& value);

/// Returns the warnings about addresses in `value` that occur again, or are that of the first recorder. Any thread.
std::vector<std::string> findRepeatedRecorders(const std::string& value, const RecorderAddress& first);

}  // namespace voip
