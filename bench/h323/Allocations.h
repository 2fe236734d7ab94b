#pragma once

#include <cstddef>

/// The heap allocations of the program so far.
std::size_t allocations();
