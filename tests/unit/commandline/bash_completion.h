// The completion of a program for bash, as its tables have it.
#pragma once

#include "command.h"

/// The whole script, which defines "_NAME" and has bash call it for the program.
std::string bashCompletion(const commandline::Program &program);
