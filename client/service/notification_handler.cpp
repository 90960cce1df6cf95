#include "notification_handler.h"

#include "journal.h"

namespace client {

using notification::UiMode;

NotificationHandler::NotificationHandler(Service &service, Agents &agents)
    : m_service(service), m_agents(agents),
      m_memory(service.stateDirectory() + QStringLiteral("/client/") +
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
    const bool wantsQuestion = request->uiMode == UiMode::Interactive;
    if (wantsQuestion && (m_agents.isEmpty() || isAskedOtherwise())) {
        refuse(QStringLiteral("the server of the account %1 wants the user to be asked before the "
                              "session, and %2")
                   .arg(request->account, m_agents.isEmpty()
                                              ? QStringLiteral("nobody can be")
                                              : QStringLiteral("another question is open")));
        return false;
    }
    const Account &account = *m_service.accounts().find(request->account);
    if (const auto kept = remember(*request, account, m_memory); !kept) {
        refuse(kept.error().reason);
        return kept.error().kind != notification::Refusal::Kind::NotRemembered;
    }
    if (wantsQuestion) {
        askUser(*request);
        return true;
    }
    if (request->uiMode == UiMode::Informative)
        tellUser(*request);
    obey(*request);
    return true;
}

void NotificationHandler::askUser(const notification::SessionRequest &request)
{
    const QJsonObject question{
        {QStringLiteral("question"), QStringLiteral("confirmation")},
        {QStringLiteral("text"),
         QStringLiteral("The server wants a session with this device. Is it allowed to have it?")},
        {QStringLiteral("options"),
         QJsonObject{{QStringLiteral("maximum-time"), qint64(mostTimeToAnswer.count())}}}};
    m_agents.ask(request.account, question, [this, request](const QJsonObject &answer) {
        const QString response = answer[u"response"].toString();
        if (response == u"given")
            obey(request);
        else
            refuse(QStringLiteral("the user, asked for a session of the account %1: %2")
                       .arg(request.account, response));
    });
}

/// No answer is waited for. A question that is open is not taken back for it.
void NotificationHandler::tellUser(const notification::SessionRequest &request)
{
    const QString text = QStringLiteral("The server begins a session with this device.");
    writeJournal(JournalPriority::Notice,
                 QStringLiteral("for the user, account %1: %2").arg(request.account, text));
    if (!m_agents.isEmpty() && !isAskedOtherwise())
        m_told = m_agents.ask(request.account,
                              {{QStringLiteral("question"), QStringLiteral("display")},
                               {QStringLiteral("text"), text}},
                              [](const QJsonObject &) {});
}

/// A text of this class, which an agent may show for as long as it likes, gives way.
bool NotificationHandler::isAskedOtherwise() const
{
    return m_agents.isAsking() && !m_agents.isAsking(m_told);
}

void NotificationHandler::obey(const notification::SessionRequest &request)
{
    const auto asked = m_service.requestSession({.account = request.account,
                                                 .cause = SessionCause::Notification,
                                                 .sessionId = request.sessionId,
                                                 .nonce = request.nonce});
    if (!asked)
        refuse(asked.error());
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
