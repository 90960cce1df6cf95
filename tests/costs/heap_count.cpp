// Counts every block that the process takes from the heap, whoever takes it: malloc of the program
// comes before the C library's.
#include "heap_count.h"

#include "dmnative_control.h"

#include <cstddef>

bool costs::counting = false;

namespace {
std::uint64_t heapBlocks = 0;
} // namespace

std::uint64_t costs::AllocationsNow()
{
    return heapBlocks + dmnative_control::PooledBlocks();
}

#ifdef KUB_SANITIZED

bool costs::CountsAllocations()
{
    return false;
}

#else

bool costs::CountsAllocations()
{
    return true;
}

extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);

#define KUB_EXPORT __attribute__((visibility("default")))

KUB_EXPORT void *malloc(std::size_t size)
{
    heapBlocks += costs::counting ? 1 : 0;
    return __libc_malloc(size);
}

KUB_EXPORT void *calloc(std::size_t count, std::size_t size)
{
    heapBlocks += costs::counting ? 1 : 0;
    return __libc_calloc(count, size);
}

KUB_EXPORT void *realloc(void *block, std::size_t size)
{
    heapBlocks += costs::counting ? 1 : 0;
    return __libc_realloc(block, size);
}
}

#endif
