// The blocks that a process takes from the heap, itself or by way of the engine's memory.
#pragma once

#include <cstdint>

namespace costs {

/// Whether blocks are counted now.
extern bool counting;

/// Blocks of the heap that were counted since the program started, and all those that the engine
/// has cut from larger ones of its own.
std::uint64_t AllocationsNow();

/// Whether this build sees the heap; a sanitizer takes its place.
bool CountsAllocations();

} // namespace costs
