// What the commands of the table do.
#pragma once

#include "command_table.h"

#include <optional>

namespace client::cli {

/// Says what is wrong, after the name of the command. @return the status, for the command to end
/// with
ExitStatus problem(const Context &context, const QString &text, ExitStatus status);
/// The same for a command line, a line of the shell or a file that it names.
ExitStatus wrongUsage(const Context &context, const QString &text);

ExitStatus runTree(Context &context);
ExitStatus runGet(Context &context);
ExitStatus runAdd(Context &context);
ExitStatus runReplace(Context &context);
ExitStatus runRename(Context &context);
ExitStatus runDelete(Context &context);
ExitStatus runCopy(Context &context);
ExitStatus runProcess(Context &context);
ExitStatus runDdf(Context &context);
ExitStatus runSession(Context &context);
/// Has a running dmclientd hold the session, without a device of this process.
/// @return none when none serves the device, or when the session has options of its own
std::optional<ExitStatus> runSessionByService(Context &context);
ExitStatus runStatus(Context &context);
ExitStatus runMonitor(Context &context);
ExitStatus runAgent(Context &context);
/// How the server has asked for a session.
struct NotifiedSession {
    quint16 sessionId = 0;
    std::optional<QByteArray> firstNonce; ///< in place of those of the account
};
/// Has a session as the options of the command say.
/// @param server  an account or a URL
ExitStatus haveSession(Context &context, const QString &server,
                       const std::optional<NotifiedSession> &notified);
ExitStatus runNotify(Context &context);
ExitStatus runReplay(Context &context);
ExitStatus runReport(Context &context);
ExitStatus runAccount(Context &context);
/// What can be done with an account.
QStringList accountWords();
/// "address=" and so on.
QStringList accountFieldWords();
/// Says which fields an account has.
QStringList accountDetails();
ExitStatus runBootstrap(Context &context);
/// Lists the messages that wait, without the device: the service may be asking about one.
/// @return none when the command line asks for something else
std::optional<ExitStatus> listBootstraps(Context &context);
ExitStatus runRecord(Context &context);
/// What can be done with records.
QStringList recordWords();
ExitStatus runShell(Context &context);
ExitStatus runExplore(Context &context);
ExitStatus runStored(Context &context);
ExitStatus runQuit(Context &context);

} // namespace client::cli
