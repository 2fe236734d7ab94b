#pragma once

#include <string>

namespace voip {

/// The settings beyond devices, filter and recorder, with their defaults. Each member is named after its key, in the
/// properties file and in the host's text of Key=value lines.
struct Settings {
  bool immediateCapture = false;
  bool reopenDevices = false;
  int captureThreads = 1;  ///< for each device, 1 to 16

  int statisticsInterval = 0;  ///< seconds; 0: only at the end and on request
  std::string statisticsFile;  ///< path; empty: no file

  int sendTimeout = 0;  ///< milliseconds, 0 to 60,000
  bool commandsFromServerOnly = false;
  std::string moreRecorders;  ///< addresses, see MoreRecorders; empty: one recorder

  int lookBack = 0;         ///< milliseconds, 0 to 60,000
  int lookBackMemory = 64;  ///< MB
  int resendLast = 0;       ///< milliseconds, 0 to 60,000; needs lookBack
  bool captureTime = false;
  int queueLimit = 0;  ///< MB; 0: no limit

  bool decapsulate = false;
  bool reassembleFragments = false;
  bool reassembleTcp = false;
  bool dropDuplicates = false;
  bool sipAnyUri = false;
  bool ipv6 = false;
  std::string tunnelPorts;  ///< see TunnelPorts

  bool operator==(const Settings&) const = default;
};

}  // namespace voip
