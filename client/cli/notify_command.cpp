// dmclient notify

#include "command_table.h"
#include "commands.h"
#include "input_file.h"
#include "session_request.h"
#include "terminal.h"
#include "wsp_push.h"
#include "yes_or_no.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace client::cli {

using commandline::isInteractive;
using commandline::printable;
using notification::Nonce;
using notification::Package0;
using notification::SessionRequest;
using notification::UiMode;

namespace {

QString describe(Nonce nonce)
{
    switch (nonce) {
    case Nonce::Agreed:
        break;
    case Nonce::ZeroText:
        return QStringLiteral("the nonce 0x00000000, as text");
    case Nonce::ZeroOctets:
        return QStringLiteral("the nonce 0x00000000, as octets");
    }
    return QStringLiteral("the agreed nonce");
}

void print(const Context &context, const Package0 &package)
{
    context.output.line(printable(
        QStringLiteral("session %1 of the server %2, ui-mode %3, begun by the %4%5")
            .arg(notification::sessionIdText(package.sessionId),
                 QString::fromUtf8(package.serverId), notification::describe(package.uiMode),
                 notification::describe(package.initiator),
                 package.vendorBody.isEmpty()
                     ? QString()
                     : QStringLiteral(", %1 bytes of the vendor").arg(package.vendorBody.size()))));
}

void print(const Context &context, const SessionRequest &request)
{
    context.output.line(printable(QStringLiteral("proved by %1: the server of the account %2")
                                      .arg(describe(request.nonce), request.account)));
}

QJsonObject toJson(const Package0 &package)
{
    return {{QStringLiteral("sessionId"), notification::sessionIdText(package.sessionId)},
            {QStringLiteral("serverId"), QString::fromUtf8(package.serverId)},
            {QStringLiteral("uiMode"), notification::describe(package.uiMode)},
            {QStringLiteral("initiator"), notification::describe(package.initiator)},
            {QStringLiteral("vendorBody"), QString::fromLatin1(package.vendorBody.toHex())}};
}

/// Says what the notification is, and whom it is from when that is known.
void tell(const Context &context, const Package0 &package, const SessionRequest *request)
{
    if (context.invocation.has("json")) {
        QJsonObject object = toJson(package);
        if (request) {
            object[u"account"] = request->account;
            object[u"nonce"] = describe(request->nonce);
        }
        context.output.json(QJsonDocument(QJsonObject{{QStringLiteral("notification"), object}}),
                            QJsonDocument::Compact);
        return;
    }
    print(context, package);
    if (request)
        print(context, *request);
}

/// Whether the server wants somebody asked who can not be.
bool lacksUser(const Context &context, const SessionRequest &request)
{
    return request.uiMode == UiMode::Interactive && !context.invocation.has("yes") &&
           (!isInteractive() || context.invocation.has("json"));
}

bool isAgreed(const Context &context, const SessionRequest &request)
{
    return request.uiMode != UiMode::Interactive || context.invocation.has("yes") ||
           askYesOrNo("Have this session?");
}

} // namespace

ExitStatus runNotify(Context &context)
{
    if (const QString reason = context.device->reasonAgainstServers(); !reason.isEmpty())
        return problem(context, reason, ExitStatus::Unusable);
    const QString &file = context.invocation.arguments[0];
    if (context.inShell && file == u"-")
        return wrongUsage(context, QStringLiteral("standard input is the shell's"));
    const auto bytes = commandline::readInput(file, push::WspPush::largest);
    if (!bytes)
        return wrongUsage(context, bytes.error());
    const auto package = notification::readNotification(*bytes);
    if (!package)
        return wrongUsage(context, QStringLiteral("%1: %2").arg(file, package.error()));

    const AccountStore &accounts = context.device->accounts();
    const auto request = requestOf(*package, accounts);
    tell(context, *package, request ? &*request : nullptr);
    if (!request)
        return problem(context, request.error().reason, ExitStatus::Failed);
    if (context.invocation.has("check"))
        return ExitStatus::Success;
    if (lacksUser(context, *request))
        return problem(context,
                       QStringLiteral("the server wants the user to be asked, and nobody can be; "
                                      "--yes has the session all the same"),
                       ExitStatus::Failed);
    const Account &account = *accounts.find(request->account);
    NotifiedSession notified{request->sessionId, std::nullopt};
    if (request->nonce != Nonce::Agreed)
        notified.firstNonce = nonceOctets(request->nonce, account);
    const notification::NotificationMemory memory(
        context.device->state().clientFile(QString::fromLatin1(notification::memoryFile)));
    if (const auto kept = remember(*request, account, memory); !kept)
        return problem(context, kept.error().reason, ExitStatus::Failed);
    if (!isAgreed(context, *request))
        return problem(context, QStringLiteral("there is no session"), ExitStatus::Failed);
    return haveSession(context, request->account, notified);
}

} // namespace client::cli
