// The commands of napictl. Each gets as many arguments as the command table allows.
#pragma once

#include "command.h"
#include "output.h"

using commandline::ExitStatus;
using commandline::Invocation;
using commandline::Output;

/// What import and provision read at most.
inline constexpr qint64 largestInput = 64 * 1024 * 1024;

ExitStatus runList(Output &output, const Invocation &invocation);
ExitStatus runShow(Output &output, const Invocation &invocation);
ExitStatus runCreate(Output &output, const Invocation &invocation);
ExitStatus runSet(Output &output, const Invocation &invocation);
ExitStatus runDelete(Output &output, const Invocation &invocation);
ExitStatus runImport(Output &output, const Invocation &invocation);
ExitStatus runExport(Output &output, const Invocation &invocation);
ExitStatus runProvision(Output &output, const Invocation &invocation);
ExitStatus runCheck(Output &output, const Invocation &invocation);
