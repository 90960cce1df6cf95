// Lets the heap run dry on demand: every new (std::nothrow) of the program asks the fault plan.
#include "handset_doubles.h"

#include <cstddef>
#include <new>

namespace {

/// The plan's own containers allocate while it is asked.
thread_local bool g_asking = false;

bool Fails(const char *site)
{
    doubles::HandsetDoubles *const handset = doubles::HandsetDoubles::Current();
    if (!handset || g_asking)
        return false;
    g_asking = true;
    const bool fails = handset->faults.Next(site).has_value();
    g_asking = false;
    return fails;
}

} // namespace

// The throwing forms do the work, so that a sanitizer still sees which form a block came from.
void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    if (Fails("new"))
        return nullptr;
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

void *operator new[](std::size_t size, const std::nothrow_t &) noexcept
{
    if (doubles::HandsetDoubles *const handset = doubles::HandsetDoubles::Current();
        handset && !g_asking)
        handset->lastArrayBytes = size;
    if (Fails("new[]"))
        return nullptr;
    try {
        return ::operator new[](size);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}
