// What the commands of the table do.
#pragma once

#include "output.h"

#include <QString>

namespace client::cli {

using commandline::ExitStatus;

struct Context;
struct Invocation;

ExitStatus runTree(Context &context, const Invocation &invocation);
ExitStatus runGet(Context &context, const Invocation &invocation);
ExitStatus runAdd(Context &context, const Invocation &invocation);
ExitStatus runReplace(Context &context, const Invocation &invocation);
ExitStatus runRename(Context &context, const Invocation &invocation);
ExitStatus runDelete(Context &context, const Invocation &invocation);
ExitStatus runCopy(Context &context, const Invocation &invocation);
ExitStatus runProcess(Context &context, const Invocation &invocation);
ExitStatus runDdf(Context &context, const Invocation &invocation);
ExitStatus runSession(Context &context, const Invocation &invocation);
ExitStatus runAccount(Context &context, const Invocation &invocation);
/// Says which fields an account has.
QString accountDetails();
ExitStatus runShell(Context &context, const Invocation &invocation);
ExitStatus runHelp(Context &context, const Invocation &invocation);
ExitStatus runQuit(Context &context, const Invocation &invocation);

} // namespace client::cli
