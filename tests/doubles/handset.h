// Everything around the plug-in, for one test.
#pragma once

#include "call_journal.h"
#include "fault_plan.h"
#include "log_capture.h"
#include "profile_service_double.h"
#include "settings_double.h"

namespace doubles {

/// The doubles of one test. They answer the plug-in's calls while it lives, and one lives at a
/// time. The engine is the host's own; its calls are journaled and can be made to fail as well.
class Handset {
public:
    Handset();
    ~Handset();
    Handset(const Handset &) = delete;
    Handset &operator=(const Handset &) = delete;

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
    static Handset *Current();
};

} // namespace doubles
