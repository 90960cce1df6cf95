#include "engine_memory.h"

#include "dmnative/dmstring.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <dlfcn.h>
#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

struct Block {
    std::size_t size;
    std::size_t number; // among all allocations
    const char *file;
    int line;
};

constexpr std::size_t mostKeptBack = 16u << 20; // bytes
constexpr int givenBack = 0xDD;

struct Memory {
    std::unordered_map<void *, Block> live;
    std::deque<std::pair<void *, std::size_t>> keptBack;
    std::size_t keptBackBytes = 0;
    std::size_t allocations = 0;
    int failing = -1;
    int failable = 0;
    std::function<void()> misuse;
};

// Never destroyed: objects of libraries may give back blocks while the process ends.
Memory &memory()
{
    static Memory &only = *new Memory;
    return only;
}

void *libraryOf(const void *address)
{
    Dl_info place{};
    return dladdr(address, &place) ? place.dli_fbase : nullptr;
}

bool mayFail(std::string_view file, const void *caller)
{
    if (file == "dmvector")
        return true;
    if (file == "jem_defs")
        return false;
    static void *const engine = libraryOf(dlsym(RTLD_DEFAULT, "_ZN8DMStringC1EPKc"));
    return libraryOf(caller) != engine;
}

bool fails(const char *file, const void *caller)
{
    Memory &all = memory();
    return all.failing >= 0 && mayFail(file, caller) && all.failable++ == all.failing;
}

} // namespace

extern "C" DMNATIVE_API void *DmtMemAllocEx(std::size_t size, const char *file, int line)
{
    Memory &all = memory();
    if (fails(file, __builtin_return_address(0)))
        return nullptr;
    void *const block = std::malloc(std::max<std::size_t>(size, 1));
    if (block)
        all.live[block] = {size, all.allocations++, file, line};
    return block;
}

extern "C" DMNATIVE_API void DmtMemFree(void *block)
{
    if (!block)
        return;
    Memory &all = memory();
    const auto found = all.live.find(block);
    if (found == all.live.end()) {
        if (all.misuse)
            all.misuse();
        return;
    }
    const std::size_t size = found->second.size;
    all.live.erase(found);
    std::memset(block, givenBack, size);
    all.keptBack.emplace_back(block, size);
    all.keptBackBytes += size;
    while (all.keptBackBytes > mostKeptBack) {
        all.keptBackBytes -= all.keptBack.front().second;
        std::free(all.keptBack.front().first);
        all.keptBack.pop_front();
    }
}

namespace engine_memory {

std::size_t liveBlocks()
{
    return memory().live.size();
}

std::size_t allocations()
{
    return memory().allocations;
}

std::string placesOfBlocksSince(std::size_t allocations)
{
    std::map<std::string, int> counts;
    for (const auto &[block, about] : memory().live)
        if (about.number >= allocations)
            ++counts[std::string(about.file) + ':' + std::to_string(about.line)];
    std::vector<std::pair<std::string, int>> places(counts.begin(), counts.end());
    std::ranges::stable_sort(places, std::greater(), &std::pair<std::string, int>::second);
    places.resize(std::min<std::size_t>(places.size(), 3));
    std::string text;
    for (const auto &[place, count] : places)
        text += (text.empty() ? "" : ", ") + place + " (" + std::to_string(count) + ')';
    return text;
}

void failAllocation(int number)
{
    memory().failing = number;
    memory().failable = 0;
}

int failableAllocations()
{
    return memory().failable;
}

void setMisuseListener(std::function<void()> listener)
{
    memory().misuse = std::move(listener);
}

} // namespace engine_memory
