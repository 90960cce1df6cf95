// The engine's allocator, with a count of live blocks for each call site.

#include "dmnative_control.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <new>
#include <string>
#include <utility>

namespace {

struct CallSite {
    std::string file;
    int line;
    std::uint32_t number; // its place among all
    std::size_t liveBlocks = 0;
};

// Stands in front of every block, at the end of what the block before may use.
struct BlockHeader {
    std::uint32_t site;
    std::uint32_t units; // of the block and its header; 0 for a block of the heap
};

// Blocks begin at a multiple of this, which is aligned for any type.
constexpr std::size_t UNIT = alignof(std::max_align_t);
static_assert(sizeof(BlockHeader) <= UNIT);

// A tree is built of blocks of a few small sizes. They are cut from chunks, one after the other,
// and wait for the next block of their size when they are given back.
#ifdef KUB_SANITIZED
constexpr std::size_t MOST_UNITS = 0; // the sanitizer looks at blocks of the heap
#else
constexpr std::size_t MOST_UNITS = 16;
#endif
constexpr std::size_t CHUNK_UNITS = 2048;

struct FreeBlock {
    FreeBlock *next;
};

/// The small blocks.
class Pool {
public:
    /// @return null when memory is exhausted.
    void *Take(std::size_t units)
    {
        FreeBlock *&free = m_free[units];
        if (free)
            return std::exchange(free, free->next);
        if (units > m_uncutUnits && !TakeChunk())
            return nullptr;
        m_uncutUnits -= units;
        return std::exchange(m_uncut, m_uncut + units * UNIT);
    }

    void GiveBack(void *block, std::size_t units)
    {
        m_free[units] = new (block) FreeBlock{m_free[units]};
    }

private:
    std::array<FreeBlock *, MOST_UNITS + 1> m_free{}; // by their units
    char *m_uncut = nullptr;                          // where the next block begins
    std::size_t m_uncutUnits = 0;

    __attribute__((noinline)) bool TakeChunk()
    {
        // The first header needs room as well: what is before it is lost.
        char *const chunk = static_cast<char *>(std::malloc((CHUNK_UNITS + 1) * UNIT));
        if (!chunk)
            return false;
        m_uncut = chunk + UNIT;
        m_uncutUnits = CHUNK_UNITS;
        return true;
    }
};

struct Allocator {
    std::deque<CallSite> sites;   // never moves its elements
    std::size_t pooledBlocks = 0; // that were taken from the pool, ever
    dmnative_control::AllocationFault fault;
    Pool pool;

    // Kept out of line, so that the usual way through an allocation is short.
    __attribute__((noinline)) bool Fails(std::size_t size, const char *file, int line) const
    {
        return fault(file, line, size);
    }

    CallSite &SiteOf(const char *file, int line)
    {
        LateCall &late =
            lateCalls[(reinterpret_cast<std::uintptr_t>(file) + static_cast<unsigned int>(line)) %
                      lateCalls.size()];
        if (late.file != file || late.line != line)
            late = {file, line, &FindSite(file, line)};
        return *late.site;
    }

private:
    /// Most calls name their file by the literal that the calls before them named.
    struct LateCall {
        const char *file;
        int line;
        CallSite *site;
    };

    std::array<LateCall, 64> lateCalls{};

    __attribute__((noinline)) CallSite &FindSite(const char *file, int line)
    {
        for (CallSite &site : sites)
            if (site.line == line && site.file == file)
                return site;
        return sites.emplace_back(CallSite{file, line, static_cast<std::uint32_t>(sites.size())});
    }
};

// Never destroyed: objects of other libraries may give back blocks while the process ends.
Allocator &theAllocator = *new Allocator;

void *TakeFromHeap(std::size_t size)
{
    char *const memory = static_cast<char *>(std::malloc(UNIT + size));
    return memory ? memory + UNIT : nullptr;
}

BlockHeader *BlockHeaderOf(void *block)
{
    return static_cast<BlockHeader *>(block) - 1;
}

} // namespace

extern "C" void *DmtMemAllocEx(std::size_t size, const char *file, int line)
{
    Allocator &allocator = theAllocator;
    if (allocator.fault && allocator.Fails(size, file, line))
        return nullptr;
    const std::size_t units =
        size / UNIT + (size % UNIT + sizeof(BlockHeader) + UNIT - 1) / UNIT; // no sum too large
    const bool isSmall = units <= MOST_UNITS;
    void *const block = isSmall ? allocator.pool.Take(units) : TakeFromHeap(size);
    if (!block)
        return nullptr;
    CallSite &site = allocator.SiteOf(file, line);
    ++site.liveBlocks;
    allocator.pooledBlocks += isSmall ? 1 : 0;
    new (BlockHeaderOf(block))
        BlockHeader{site.number, static_cast<std::uint32_t>(isSmall ? units : 0)};
    return block;
}

extern "C" void DmtMemFree(void *block)
{
    if (!block)
        return;
    Allocator &allocator = theAllocator;
    const BlockHeader header = *BlockHeaderOf(block);
    --allocator.sites[header.site].liveBlocks;
    if (header.units > 0)
        allocator.pool.GiveBack(block, header.units);
    else
        std::free(static_cast<char *>(block) - UNIT);
}

namespace dmnative_control {

std::size_t LiveBlocks()
{
    std::size_t blocks = 0;
    for (const CallSite &site : theAllocator.sites)
        blocks += site.liveBlocks;
    return blocks;
}

std::size_t LiveBlocks(std::string_view file, int line)
{
    for (const CallSite &site : theAllocator.sites)
        if (site.line == line && site.file == file)
            return site.liveBlocks;
    return 0;
}

std::size_t PooledBlocks()
{
    return theAllocator.pooledBlocks;
}

void SetAllocationFault(AllocationFault fault)
{
    theAllocator.fault = std::move(fault);
}

} // namespace dmnative_control
