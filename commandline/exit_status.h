// Exit statuses of the programs. They are part of their interface: the manual pages list them.
#pragma once

#include <algorithm>

namespace commandline {

enum class ExitStatus : int {
    Success = 0,    ///< everything was done
    Failed = 1,     ///< an operation failed, or a DM command was answered with 4xx or 5xx
    WrongUsage = 2, ///< the command line, a line of a shell, or an input file is wrong
    Unusable = 3,   ///< what the program works with cannot be used (the profile store, the plug-in,
                    ///< the state directory, standard output), or something is not kept that
                    ///< should be, such as a trace
    SessionFailed = 4, ///< a session with a DM server was aborted or failed, or a package would end
                       ///< it with a refusal of the client
    Different = 5,     ///< everything was done, and something is not as it was asked for
};

/// The status that several commands end with together: the highest of theirs.
inline ExitStatus worse(ExitStatus one, ExitStatus other)
{
    return std::max(one, other);
}

} // namespace commandline
