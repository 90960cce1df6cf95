// One scenario for each way through the plug-in that calls the world outside.
#pragma once

#include "failure_script.h"
#include "plugin_test.h"

#include <functional>
#include <string>
#include <vector>

namespace faults {

/// The password that scenarios write. No message may ever have it.
inline constexpr char PASSWORD[] = "recognisable-password";

/// What a scenario works on: the handset, and the trees that it has mounted.
struct Stage {
    doubles::HandsetDoubles handset;
    JemSmartPtr<DmtPluginTree> conn;
    JemSmartPtr<DmtPluginTree> intProfs;
};

struct Scenario {
    std::string name;
    /// Brings the stage to where the operation starts.
    std::function<void(Stage &)> prepare;
    /// The operation; its status.
    std::function<int(Stage &)> run;
    Script script;
};

std::vector<Scenario> AllScenarios();

/// Mounts a root; its status.
int Mount(const char *root, JemSmartPtr<DmtPluginTree> &tree);

} // namespace faults
