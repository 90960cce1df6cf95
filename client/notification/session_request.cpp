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

Expected<SessionRequest, Refusal> requestFor(const QString &name, const Account &account,
                                             const Package0 &package, Nonce nonce,
                                             const NotificationMemory &memory)
{
    const auto isNew = memory.add(name, *nonceOctets(nonce, account), package.sessionId);
    if (!isNew)
        return refuse(Refusal::Kind::NotRemembered,
                      QStringLiteral("it cannot be kept that the notification was obeyed: %1")
                          .arg(isNew.error()));
    if (!*isNew)
        return refuse(Refusal::Kind::Repeated,
                      QStringLiteral("the notification of session %1 of the account %2 has come "
                                     "before")
                          .arg(sessionIdText(package.sessionId), name));
    return SessionRequest{name, package.sessionId, package.uiMode, package.initiator, nonce};
}

} // namespace

Expected<SessionRequest, Refusal> requestOf(const Package0 &package, const AccountStore &accounts,
                                            const NotificationMemory &memory)
{
    for (const auto &[name, account] : accounts.accounts())
        if (const auto nonce = proofOf(package, account))
            return requestFor(name, account, package, *nonce, memory);
    return unproved(package, accounts);
}

} // namespace client::notification
