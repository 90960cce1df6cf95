// Who hears of the commands that run on a management tree.
#pragma once

#include "dm_status.h"

#include <QByteArray>
#include <QString>

namespace client {

/// Hears when each command begins and ends, and may know reasons that the tree does not: what was
/// said beneath it meanwhile.
class CommandWatch {
public:
    virtual ~CommandWatch() = default;

    /// A command begins, or an item of one that has several.
    /// @param name     as the DM protocol has it, or as it was typed
    /// @param address  of the node that it is about, as it was given
    virtual void begin(const QString &name, const QString &address) = 0;
    /// It has ended. @param outcome  gets the reasons that became known
    virtual void end(Outcome &outcome) = 0;
    /// A node is about to have this secret as its value, and may tell of it.
    virtual void secretIsWritten(const QByteArray &secret) = 0;
};

} // namespace client
