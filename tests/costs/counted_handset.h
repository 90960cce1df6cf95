// A handset that costs nothing: the profile service and the settings files in memory, and what the
// plug-in asks of them and of the heap, counted. Whatever the stand-ins do themselves is left out
// of the counts and of a profile that callgrind takes.
#pragma once

#include "napi.h"

#include <cstdint>
#include <string>

namespace costs {

struct Counts {
    std::uint64_t calls = 0;        ///< of the profile service, the settings class and unlink
    std::uint64_t flushes = 0;      ///< of settings files; among the calls
    std::uint64_t bytesWritten = 0; ///< settings files and profile records
    std::uint64_t allocations = 0;  ///< heap blocks, the engine's memory included
};

/// The counts since the program started.
Counts CountsNow();

/// Nothing is counted and callgrind collects nothing while one of these lives.
class Uncounted {
public:
    Uncounted();
    ~Uncounted();
    Uncounted(const Uncounted &) = delete;
    Uncounted &operator=(const Uncounted &) = delete;
};

/// The stored profiles.
void ForgetEverything();
void Store(const std::string &name, const NAP_PROFILE_S &record);

// For the stand-ins.
extern Counts counts;

} // namespace costs
