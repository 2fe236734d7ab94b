#pragma once

#include <cstddef>
#include <cstdint>

namespace voip {

/// What the network stack does beyond the plain way.
struct NetworkOptions {
  bool decapsulate = false;
  bool dropDuplicates = false;
  bool reassembleFragments = false;
  bool reassembleTcp = false;
};

/// How much the network stack keeps, and for how long. The defaults are those of production; a fuzzer takes small ones.
/// Memory in bytes, times in microseconds.
struct NetworkLimits {
  std::size_t streams = 100'000;               ///< TCP streams, one for each direction
  std::size_t openings = 16'384;               ///< of these, streams without payload so far
  std::size_t streamMemory = 64 << 20;         ///< of all streams
  std::size_t earlyMemory = 256 << 10;         ///< out-of-order data of one stream
  std::int64_t gapPatience = 2'000'000;        ///< a missing segment is waited for this long
  std::size_t datagrams = 4'096;               ///< incomplete datagrams
  std::size_t datagramMemory = 16 << 20;       ///< of all incomplete datagrams
  std::int64_t datagramPatience = 30'000'000;  ///< from the first fragment on
  std::size_t duplicateBuckets = 16'384;       ///< of four packets each; a power of two
};

}  // namespace voip
