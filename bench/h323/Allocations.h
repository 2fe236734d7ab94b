#pragma once

#include <cstddef>

// Heap allocations of the program so far.
size_t allocations();
