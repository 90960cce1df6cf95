// The blocks that a process takes from the heap.
#pragma once

#include <cstdint>

namespace costs {

/// Whether blocks are counted now.
extern bool counting;

/// Counted since the program started.
extern std::uint64_t allocations;

/// Whether this build sees the heap; a sanitizer takes its place.
bool CountsAllocations();

} // namespace costs
