// The engine's allocator, with a count of live blocks for each call site.

#include "dmnative_control.h"

#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>

namespace {

struct CallSite {
    std::string file;
    int line;
    std::size_t liveBlocks = 0;
};

// Stands in front of every block; its size keeps the block aligned for any type.
struct alignas(std::max_align_t) BlockHeader {
    CallSite *site;
};

struct Allocator {
    std::deque<CallSite> sites; // never moves its elements
    std::size_t allocatedBlocks = 0;
    dmnative_control::AllocationFault fault;

    CallSite &SiteOf(const char *file, int line)
    {
        for (CallSite &site : sites)
            if (site.line == line && std::strcmp(site.file.c_str(), file) == 0)
                return site;
        return sites.emplace_back(CallSite{file, line});
    }
};

// Never destroyed: objects of other libraries may give back blocks while the process ends.
Allocator &TheAllocator()
{
    static Allocator *const allocator = new Allocator;
    return *allocator;
}

} // namespace

extern "C" void *DmtMemAllocEx(std::size_t size, const char *file, int line)
{
    Allocator &allocator = TheAllocator();
    if (allocator.fault && allocator.fault(file, line, size))
        return nullptr;
    void *const memory = std::malloc(sizeof(BlockHeader) + size);
    if (!memory)
        return nullptr;
    CallSite &site = allocator.SiteOf(file, line);
    ++site.liveBlocks;
    ++allocator.allocatedBlocks;
    return new (memory) BlockHeader{&site} + 1;
}

extern "C" void DmtMemFree(void *block)
{
    if (!block)
        return;
    BlockHeader *const header = static_cast<BlockHeader *>(block) - 1;
    --header->site->liveBlocks;
    std::free(header);
}

namespace dmnative_control {

std::size_t LiveBlocks()
{
    std::size_t blocks = 0;
    for (const CallSite &site : TheAllocator().sites)
        blocks += site.liveBlocks;
    return blocks;
}

std::size_t LiveBlocks(std::string_view file, int line)
{
    for (const CallSite &site : TheAllocator().sites)
        if (site.line == line && site.file == file)
            return site.liveBlocks;
    return 0;
}

std::size_t AllocatedBlocks()
{
    return TheAllocator().allocatedBlocks;
}

void SetAllocationFault(AllocationFault fault)
{
    TheAllocator().fault = std::move(fault);
}

} // namespace dmnative_control
