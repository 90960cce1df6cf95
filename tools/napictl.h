// napictl as a program: its tables, and what carries out a command.
#pragma once

#include "command.h"
#include "output.h"

const commandline::Program &napictlProgram();

commandline::ExitStatus executeNapictl(commandline::Output &output,
                                       const commandline::Invocation &invocation);
