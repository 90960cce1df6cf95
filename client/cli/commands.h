// What the commands of the table do.
#pragma once

#include "command_table.h"

namespace client::cli {

/// Says what is wrong with a command line.
ExitStatus wrongUsage(Context &context, const QString &problem);

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
/// What can be done with an account.
QStringList accountWords();
/// "address=" and so on.
QStringList accountFieldWords();
/// Says which fields an account has.
QStringList accountDetails();
ExitStatus runShell(Context &context, const Invocation &invocation);
ExitStatus runQuit(Context &context, const Invocation &invocation);

} // namespace client::cli
