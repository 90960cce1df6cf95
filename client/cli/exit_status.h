// Exit statuses of dmclient. They are part of its interface: dmclient(1) lists the same ones.
#pragma once

#include <algorithm>

namespace client::cli {

enum class ExitStatus : int {
    Success = 0,        ///< every DM command succeeded
    CommandRefused = 1, ///< a DM command was answered with 4xx or 5xx
    WrongUsage = 2,     ///< the command line, a line of the shell, or an input file is wrong
    Unusable = 3,       ///< the plug-in, the state directory or standard output cannot be used, or
                        ///< something is not kept that should be, such as a trace
    SessionFailed = 4,  ///< a session with a DM server was aborted or failed, or a package would
                        ///< end it with a refusal of the client
};

/// The status that several commands end with together: the highest of theirs.
inline ExitStatus worse(ExitStatus one, ExitStatus other)
{
    return std::max(one, other);
}

} // namespace client::cli
