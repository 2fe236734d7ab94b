#pragma once

#include <cstddef>

// Heap allocations of the program so far.
std::size_t allocations();
