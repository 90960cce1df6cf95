// What is checked of a plug-in: a row for each check.
#pragma once

#include "device.h"
#include "examination.h"

#include <span>

/// What all checks work on.
struct Plugin {
    std::string file;
    std::vector<std::string> roots; ///< in the order of mounting
};

/// How far a plug-in has to be in order. What does not work at one stage would be found again by
/// each check of those after it, which are left out then.
enum class Stage { Exports, Mount, Tables, References, Reading, Changing };

struct Check {
    const char *id;
    const char *title;
    Stage stage; ///< to which it belongs; it needs those before
    Copies copies;
    /// Looks at the item with that number. @return false when there is none, or nothing after it
    bool (*examine)(Witness &witness, const Plugin &plugin, std::size_t root, int item);
    bool isOfEachRoot = true; ///< or of the whole library
};

/// In the order in which they are made: stage by stage.
std::span<const Check> allChecks();
