// Bootstrap messages that come by SMS.
#pragma once

#include "pending_bootstraps.h"
#include "refusal_count.h"
#include "service.h"

namespace client {

/// Keeps them, and has the service apply them. What they say is not looked at here.
class BootstrapHandler {
public:
    /// @param service  has to outlive the handler
    explicit BootstrapHandler(Service &service);

    /// Keeps the message of a push until its user has answered for it, or says in the journal why
    /// not.
    /// @param imsi  of the SIM card that it came to; empty when it is not known
    /// @return whether it is over with it; otherwise it may be kept when it comes again
    bool handle(const QByteArray &push, const QByteArray &imsi);
    /// Has those applied that wait: there is somebody now who can be asked.
    void offerAll();

private:
    void refuse(const QString &reason);

    Service &m_service;
    const push::PendingBootstraps m_pending;
    RefusalCount m_kept;
    RefusalCount m_refused;
};

} // namespace client
