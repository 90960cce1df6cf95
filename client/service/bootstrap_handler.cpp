#include "bootstrap_handler.h"

#include "journal.h"

namespace client {

using push::PendingBootstraps;

BootstrapHandler::BootstrapHandler(Service &service)
    : m_service(service), m_pending(service.stateDirectory())
{
}

bool BootstrapHandler::handle(const QByteArray &push, const QByteArray &imsi)
{
    const auto kept = m_pending.add(push, imsi, currentMoment().wallClock);
    if (!kept) {
        refuse(kept.error());
        return false;
    }
    switch (kept->added) {
    case PendingBootstraps::Added::Known:
        return true;
    case PendingBootstraps::Added::NoProof:
        refuse(QStringLiteral("it has no MAC, without which nothing is taken from the air"));
        return true;
    case PendingBootstraps::Added::NoRoom:
        refuse(QStringLiteral("%1 wait, which is the most").arg(PendingBootstraps::most));
        return false;
    case PendingBootstraps::Added::New:
        break;
    }
    if (const auto count = m_kept.add(RefusalCount::Clock::now()))
        writeJournal(JournalPriority::Notice,
                     QStringLiteral("%1 bootstrap messages came by SMS; the last one is %2")
                         .arg(*count)
                         .arg(kept->id));
    m_service.applyBootstrap(kept->id);
    return true;
}

void BootstrapHandler::offerAll()
{
    const PendingBootstraps::Listing listing = m_pending.list();
    for (const QString &damage : listing.damage)
        refuse(damage);
    for (const push::PendingBootstrap &pending : listing.pending)
        if (!pending.isSetAside)
            m_service.applyBootstrap(pending.id);
}

void BootstrapHandler::refuse(const QString &reason)
{
    if (const auto count = m_refused.add(RefusalCount::Clock::now()))
        writeJournal(JournalPriority::Warning,
                     QStringLiteral("%1 bootstrap messages are not taken, the last because: %2")
                         .arg(*count)
                         .arg(reason));
}

} // namespace client
