// What the tables say to people.
#pragma once

#include "command.h"

namespace commandline {

/// "dmclient [OPTION...] COMMAND [ARGUMENT...]"
QString synopsis(const Program &program);
/// "tree [URI] [--json] [--show-secrets]"
QString synopsis(const Command &command);
/// "tree [URI] [OPTION...]"
QString shortUsage(const Command &command);

/// What the program is for, its commands and options, and its exit statuses.
/// @param width  columns that a line may have
QString programHelp(const Program &program, int width);
/// What a command is for, and its options.
QString commandHelp(const Program &program, const Command &command, int width);

} // namespace commandline
