// The page server for a program of which one command needs it, in a library of its own that is
// loaded at first use.
#pragma once

#include "explorer.h"

namespace client {

/// What the library of the page server offers.
struct ExploreModule {
    /// As explore().
    support::Expected<void, QString> (*explore)(
        const ExplorerOptions &options, const std::function<void(const QUrl &address)> &started);

    /// Loads the library from the program's own library folder (its RUNPATH); it stays loaded.
    /// @return never null; the error is a sentence that names the file and the reason
    static support::Expected<const ExploreModule *, QString> load();
};

} // namespace client
