// Profiles that the arguments of a command mean.
#pragma once

#include <QStringList>

#include "output.h"

using commandline::ExitStatus;
using commandline::Output;

struct MeantProfiles {
    QStringList names; ///< each once
    ExitStatus exitStatus = ExitStatus::Success;
};

/// An argument that is the name of a profile means that one. Any other with *, ? or [ is a pattern
/// of a shell, and means all profiles whose names it matches, in the order of their IDs. Each
/// argument that means no profile is reported.
MeantProfiles findProfiles(Output &output, const QStringList &arguments);
