// A program from its first word to its exit status.
#pragma once

#include "completion_words.h"
#include "output.h"

#include <optional>

namespace commandline {

/// Does what needs nothing but the tables: reports wrong usage, prints help and the version.
/// @return the invocation of a command of the program's own; none when there is nothing more to do,
///         with how it ended in exitStatus
std::optional<Invocation> interpret(const Program &program, const QStringList &words,
                                    Output &output, ExitStatus &exitStatus);

/// Runs a program. Arguments that are not UTF-8 are refused, and output that is lost is reported.
/// @param execute           carries out a command of its own
/// @param completeArgument  knows what there is, for a shell that completes a command line
/// @return the exit status
int run(int argc, char *argv[], const Program &program,
        ExitStatus (*execute)(Output &output, const Invocation &invocation),
        const ArgumentCompleter &completeArgument);

} // namespace commandline
