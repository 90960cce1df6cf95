// What a second look tells of what it has seen.
#pragma once

#include "notes.h"

namespace client {

/// Hears of what the tree was and is, when the look is taken: after the commands.
class LookObserver {
public:
    virtual ~LookObserver() = default;

    /// The number of the command that runs at this moment, from 1; 0 when none does. What is told
    /// later of its changes has this number.
    virtual int runningCommand() const = 0;
    /// The whole tree before the first change, unless it is too large.
    virtual void treeSeen(const Picture &tree) = 0;
    /// What a command has done to the tree.
    virtual void commandSeen(int command, const TreeDifference &difference) = 0;
    /// What the next mount will change in the tree as it is now.
    virtual void nextMountSeen(const TreeDifference &difference) = 0;
    virtual void differenceNoted(int command, const DifferenceNote &note) = 0;
    /// Something that a person should know of the look.
    virtual void note(const QString &text) = 0;
};

} // namespace client
