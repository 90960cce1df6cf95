#include "session_request.h"

#include <algorithm>

namespace client::notification {

using support::Expected;
using support::Unexpected;

namespace {

Unexpected<Refusal> refuse(Refusal::Kind kind, const QString &reason)
{
    return Unexpected(Refusal{kind, reason});
}

Unexpected<Refusal> unproved(const Package0 &package, const AccountStore &accounts)
{
    const QString server = QString::fromUtf8(package.serverId);
    const bool isKnown = std::ranges::any_of(accounts.accounts(), [&package](const auto &entry) {
        return entry.second.serverId == package.serverId;
    });
    if (isKnown)
        return refuse(Refusal::Kind::WrongDigest,
                      QStringLiteral("the digest is not that of the server %1").arg(server));
    return refuse(Refusal::Kind::UnknownServer,
                  QStringLiteral("no account is of the server %1").arg(server));
}

} // namespace

Expected<SessionRequest, Refusal> requestOf(const Package0 &package, const AccountStore &accounts)
{
    for (const auto &[name, account] : accounts.accounts())
        if (const auto nonce = proofOf(package, account))
            return SessionRequest{name, package.sessionId, package.uiMode, package.initiator,
                                  *nonce};
    return unproved(package, accounts);
}

Expected<void, Refusal> remember(const SessionRequest &request, const Account &account,
                                 const NotificationMemory &memory)
{
    const auto nonce = nonceOctets(request.nonce, account);
    const auto isNew = memory.add(request.account, nonce.value_or(QByteArray()), request.sessionId);
    if (!isNew)
        return refuse(Refusal::Kind::NotRemembered,
                      QStringLiteral("it cannot be kept that the notification was obeyed: %1")
                          .arg(isNew.error()));
    if (!*isNew)
        return refuse(Refusal::Kind::Repeated,
                      QStringLiteral("the notification of session %1 of the account %2 has come "
                                     "before")
                          .arg(sessionIdText(request.sessionId), request.account));
    return {};
}

} // namespace client::notification
