// Notifications of servers, whichever way they came.
#pragma once

#include "refusal_count.h"
#include "service.h"
#include "session_request.h"

namespace client {

/// Asks the service for the sessions that servers want. Nobody is answered, whatever comes.
class NotificationHandler {
public:
    /// @param service  has to outlive the handler
    explicit NotificationHandler(Service &service);

    /// Obeys a notification in a WAP push, or says in the journal why not.
    /// @return whether it is over with it; otherwise it may be obeyed when it comes again
    bool handle(const QByteArray &push);

private:
    void refuse(const QString &reason);

    Service &m_service;
    const notification::NotificationMemory m_memory;
    RefusalCount m_refused;
};

} // namespace client
