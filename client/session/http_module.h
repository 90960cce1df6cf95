// HTTP for a program of which few commands need it: the code, and the network libraries beneath it,
// are in a library of their own that is loaded at first use.
#pragma once

#include "http_transport.h"

namespace client {

/// What the library of HTTP offers.
struct HttpModule {
    /// As HttpTransport::create.
    support::Expected<std::unique_ptr<Transport>, QString> (*createTransport)(
        const HttpTransport::Options &options);
    /// Whether both addresses have the same host, however they write it.
    bool (*areSameHost)(const QUrl &one, const QUrl &other);

    /// Loads the library from the program's own library folder (its RUNPATH); it stays loaded.
    /// @return never null; the error is a sentence that names the file and the reason
    static support::Expected<const HttpModule *, QString> load();
};

} // namespace client
