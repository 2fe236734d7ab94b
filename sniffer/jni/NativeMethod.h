#pragma once

#include <cstdio>
#include <exception>

namespace voip {

/// Runs the body of a native method and catches its exceptions. Reports them on standard error, because logging may be
/// the cause.
template <typename Body>
void nativeMethod(const char* name, Body body) noexcept {
  try {
    body();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s: %s\n", name, failure.what());
  } catch (...) {
    std::fprintf(stderr, "%s: unknown failure\n", name);
  }
}

}  // namespace voip
