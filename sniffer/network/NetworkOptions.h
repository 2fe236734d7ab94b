#pragma once

#include <cstddef>
#include <cstdint>

#include "settings/Settings.h"
#include "settings/TunnelPorts.h"

namespace voip {

/// The stages of the network stack beyond the plain path.
struct NetworkOptions {
  bool decapsulate = false;
  bool dropDuplicates = false;
  bool reassembleFragments = false;
  bool reassembleTcp = false;
  bool ipv6 = false;             ///< reads IPv6 packets, in each stage
  TunnelPorts tunnelPorts = {};  ///< of `decapsulate`

  /// Returns the options that the settings ask for.
  static NetworkOptions of(const Settings& settings) {
    return {settings.decapsulate,   settings.dropDuplicates, settings.reassembleFragments,
            settings.reassembleTcp, settings.ipv6,           TunnelPorts(settings.tunnelPorts)};
  }
};

/// Limits of the memory and the waiting times of the network stack. The defaults are for production; the fuzzer sets
/// smaller limits. Memory in bytes, times in microseconds.
struct NetworkLimits {
  std::size_t streams = 100'000;               ///< TCP streams, one for each direction
  std::size_t openings = 16'384;               ///< of these, streams that have had no payload yet
  std::size_t streamMemory = 64 << 20;         ///< of all streams
  std::size_t earlyMemory = 256 << 10;         ///< out-of-order data of one stream
  std::size_t work = 25'000;                   ///< of one call for streams, in the units of Work
  std::size_t backlogMemory = 32 << 20;        ///< octets of one stream that earlier calls have left
  std::int64_t gapPatience = 2'000'000;        ///< maximum wait for a missing segment
  std::size_t datagrams = 4'096;               ///< incomplete datagrams
  std::size_t datagramMemory = 16 << 20;       ///< of all incomplete datagrams
  std::int64_t datagramPatience = 30'000'000;  ///< from the first fragment on
  std::size_t duplicateBuckets = 16'384;       ///< of four packets each; a power of two
};

}  // namespace voip
