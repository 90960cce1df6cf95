// The engine's allocator, in this program's own place: the loader takes DmtMemAllocEx and
// DmtMemFree from a program before it looks into libraries, so the engine and the plug-in both come
// here.
//
// Every block is one of the heap, which sanitizers and valgrind look at. One that was given back is
// filled and kept back for a while, so that whoever uses it still does not find what was there.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace engine_memory {

/// Blocks that were allocated and not yet given back.
std::size_t liveBlocks();

/// Where the live blocks were allocated that are younger than so many allocations:
/// "dmstring:52 (3)", the most frequent first, three at most.
std::string placesOfBlocksSince(std::size_t allocations);
/// Allocations since the program started.
std::size_t allocations();

/// Has the allocation with this number fail, from 0 on, of those that the interface lets fail: what
/// a plug-in allocates itself, and vectors that grow. Objects and texts are built without a way to
/// say that there is no room for them. Counts anew; a negative number has none fail.
void failAllocation(int number);
/// How many there were since then that could have failed.
int failableAllocations();

/// Told of a block that is given back and is not a live one.
void setMisuseListener(std::function<void()> listener);

} // namespace engine_memory
