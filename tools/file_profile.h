// Profiles of a file beside those of the store.
#pragma once

#include <optional>

#include "output.h"
#include "profile_json.h"

using commandline::ExitStatus;
using commandline::Output;

/// A profile of a file, as a record.
struct FileProfile {
    QString name;
    std::optional<NAP_PROFILE_S> stored; ///< none when the store has no profile of that name
    NAP_PROFILE_S record;
    const ProfileField *masked = nullptr; ///< a password that neither the file nor the store has
};

/// Makes a record of what a file says, upon the stored one: bytes that no field names stay, and a
/// masked password is the stored one.
/// @return the profile; none, with the exit status, when it was reported what is wrong with it
std::optional<FileProfile> recordOf(Output &output, const JsonProfile &profile,
                                    ExitStatus &exitStatus);
