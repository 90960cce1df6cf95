// Everything around the plug-in, for one test.
#pragma once

#include "call_journal.h"
#include "fault_plan.h"
#include "log_capture.h"
#include "profile_service_double.h"
#include "settings_double.h"

#include <cstddef>
#include <string>
#include <vector>

namespace doubles {

/// The blocks that are asked of the engine's allocator while it lives; planned faults of the
/// allocator rest meanwhile.
class AllocationWatch {
public:
    AllocationWatch();
    ~AllocationWatch();
    AllocationWatch(const AllocationWatch &) = delete;
    AllocationWatch &operator=(const AllocationWatch &) = delete;

    /// Sites of the blocks of this many bytes, in order: "jem_defs:255".
    std::vector<std::string> SitesOfSize(std::size_t bytes) const;

private:
    struct Block {
        std::string site;
        std::size_t bytes;
    };
    std::vector<Block> m_blocks;
};

/// The doubles of one test. They answer the plug-in's calls while it lives, and one lives at a
/// time. The engine is the host's own; its calls are journaled and can be made to fail as well.
class HandsetDoubles {
public:
    HandsetDoubles();
    ~HandsetDoubles();
    HandsetDoubles(const HandsetDoubles &) = delete;
    HandsetDoubles &operator=(const HandsetDoubles &) = delete;

    CallJournal journal;
    FaultPlan faults;
    ProfileServiceDouble napi;
    SettingsDouble settings;
    LogCapture log;
    /// Size of the latest array that was asked for with new (std::nothrow), in bytes.
    std::size_t lastArrayBytes = 0;

    /// Journals the engine's calls again after a test has asked the engine something of its own.
    static void ObserveEngine();

    /// The one that lives; null between tests.
    static HandsetDoubles *Current();
};

} // namespace doubles
