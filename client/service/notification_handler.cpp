#include "notification_handler.h"

#include "journal.h"

namespace client {

NotificationHandler::NotificationHandler(Service &service)
    : m_service(service), m_memory(service.stateDirectory() + QStringLiteral("/client/") +
                                   QString::fromLatin1(notification::memoryFile))
{
}

bool NotificationHandler::handle(const QByteArray &push)
{
    const auto package = notification::readNotificationPush(push);
    if (!package) {
        refuse(package.error());
        return true;
    }
    const auto request = requestOf(*package, m_service.accounts());
    if (!request) {
        refuse(request.error().reason);
        // A damaged file of accounts knows no server until somebody mends it.
        return m_service.accounts().damage().isEmpty();
    }
    if (request->uiMode == notification::UiMode::Interactive) {
        refuse(QStringLiteral("the server of the account %1 wants the user to be asked before the "
                              "session, and nobody can be")
                   .arg(request->account));
        return false;
    }
    const Account &account = *m_service.accounts().find(request->account);
    if (const auto kept = remember(*request, account, m_memory); !kept) {
        refuse(kept.error().reason);
        return kept.error().kind != notification::Refusal::Kind::NotRemembered;
    }
    const auto asked = m_service.requestSession({.account = request->account,
                                                 .cause = SessionCause::Notification,
                                                 .sessionId = request->sessionId,
                                                 .nonce = request->nonce});
    if (!asked)
        refuse(asked.error());
    return true;
}

void NotificationHandler::refuse(const QString &reason)
{
    const auto count = m_refused.add(RefusalCount::Clock::now());
    if (!count)
        return;
    writeJournal(JournalPriority::Warning,
                 *count == 1 ? QStringLiteral("a notification is not obeyed: %1").arg(reason)
                             : QStringLiteral("%1 more notifications are not obeyed, the last "
                                              "because: %2")
                                   .arg(*count)
                                   .arg(reason));
}

} // namespace client
