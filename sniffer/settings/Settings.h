#pragma once

#include <string>

namespace voip {

/// The values of the settings that decide how the sniffer works beyond where it captures and whom it serves. Each is
/// off as it stands here. Filled from the properties file, or from the host's text of Key=value lines; the members are
/// named after their keys.
struct Settings {
  bool immediateCapture = false;
  bool reopenDevices = false;

  int statisticsInterval = 0;  ///< seconds; 0: only at the end and on request
  std::string statisticsFile;  ///< path; empty: none

  int sendTimeout = 0;  ///< milliseconds, 0 to 60,000
  bool commandsFromServerOnly = false;

  int lookBack = 0;         ///< milliseconds, 0 to 60,000
  int lookBackMemory = 64;  ///< MB
  bool captureTime = false;
  int queueLimit = 0;  ///< MB; 0: none

  bool decapsulate = false;
  bool reassembleFragments = false;
  bool reassembleTcp = false;
  bool dropDuplicates = false;
  bool sipAnyUri = false;

  bool operator==(const Settings&) const = default;
};

}  // namespace voip
