#pragma once

#include <cstdlib>

/// Ends the process unless `condition` holds, so that the fuzzer reports its input.
inline void require(bool condition) {
  if (!condition) std::abort();
}
