// Notifications of servers, whichever way they came.
#pragma once

#include "agents.h"
#include "refusal_count.h"
#include "service.h"
#include "session_request.h"

namespace client {

/// Asks the service for the sessions that servers want, and the user before it where a server wants
/// that. No sender is answered, whatever comes.
///
/// A notification is used up when the user has been asked, whatever comes of it, so that none asks
/// twice. One that finds nobody, or somebody who is being asked something else, is not.
class NotificationHandler {
public:
    /// How long a user may take to answer.
    static constexpr std::chrono::seconds mostTimeToAnswer = std::chrono::minutes(5);

    /// @param service  has to outlive the handler, and so has the other
    NotificationHandler(Service &service, Agents &agents);

    /// Obeys a notification in a WAP push, or says in the journal why not.
    /// @return whether it is over with it; otherwise it may be obeyed when it comes again
    bool handle(const QByteArray &push);

private:
    void askUser(const notification::SessionRequest &request);
    void tellUser(const notification::SessionRequest &request);
    bool isAskedOtherwise() const;
    void obey(const notification::SessionRequest &request);
    void refuse(const QString &reason);

    Service &m_service;
    Agents &m_agents;
    const notification::NotificationMemory m_memory;
    RefusalCount m_refused;
    int m_told = 0; ///< what the user was told last, as the agents count
};

} // namespace client
