// napictl as a program: its tables, and what carries out a command.
#pragma once

#include "completion_words.h"
#include "output.h"

const commandline::Program &napictlProgram();

commandline::ExitStatus executeNapictl(commandline::Output &output,
                                       const commandline::Invocation &invocation);

/// Names of stored profiles, for the commands that take them.
std::vector<commandline::Candidate> completeNapictlArgument(const commandline::Invocation &before,
                                                            const QString &prefix);
