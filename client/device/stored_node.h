// What the handset has stored for a node at one moment, read without a question to the plug-in.
#pragma once

#include "napi.h"

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <optional>
#include <vector>

namespace client {

/// A profile as the profile service has it.
struct StoredProfile {
    std::uint32_t id = 0;
    QByteArray name;
    NAP_PROFILE_S record{};
};

/// What a mapping file of the plug-in holds.
struct StoredMapping {
    struct Entry {
        QString group;
        QString key;
        QString value;
    };

    QString file; ///< its name in the directory of the settings files
    std::vector<Entry> entries;
    QString fault; ///< what of it could not be read, in sentences; empty when all was
};

struct StoredNode {
    std::optional<StoredProfile> profile; ///< the one that the node shows
    QString fault;                        ///< why there is none: a sentence
    std::vector<StoredMapping> mappings;  ///< all, in the order of their roots
};

} // namespace client
