// The options of dmclient itself, which stand before the command.
#pragma once

#include "dm_device.h"
#include "output.h"

#include <QStringList>
#include <optional>

namespace client::cli {

using commandline::ExitStatus;
using commandline::Output;

struct CommandLine {
    DmDevice::Options device;
    QString command;
    QStringList words; ///< behind the command
};

/// What --help prints.
QString programHelp();

/// Reads the words of the command line, the program's name first.
/// @return none when there is nothing to run: help or the version was asked for and has been
///         printed, or the usage is wrong and has been reported; exitStatus says which
std::optional<CommandLine> parseCommandLine(const QStringList &words, Output &output,
                                            ExitStatus &exitStatus);

} // namespace client::cli
