// The service on the bus.
#pragma once

#include "agents.h"
#include "service.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QList>
#include <QStringList>
#include <QVariantMap>

namespace client {

using VariantMaps = QList<QVariantMap>; ///< aa{sv}

/// The interface org.kub.DmClient1. Who may call it is up to the bus (org.kub.DmClient1.conf);
/// nothing that can be read has a secret.
class ManagerObject : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kub.DmClient1")
    /// "offline", "idle" or "session"
    Q_PROPERTY(QString State READ state)
    /// The account whose session runs; empty when none does.
    Q_PROPERTY(QString Session READ session)
    /// Accounts whose sessions wait for their turn.
    Q_PROPERTY(QStringList Waiting READ waiting)
    Q_PROPERTY(bool Online READ isOnline)
    /// name, title, server-id (s), interval (t, seconds), next (t, milliseconds since 1970, where a
    /// session begins by itself), failures (u, in a row)
    Q_PROPERTY(VariantMaps Accounts READ accounts)
    /// As toVariantMap(SessionResult), the newest last.
    Q_PROPERTY(VariantMaps LastResults READ lastResults)
    Q_PROPERTY(QString StateDirectory READ stateDirectory)
    Q_PROPERTY(QString Version READ version)

public:
    /// @param owner    the object that is to be on the bus; the adaptor is its child
    /// @param service  has to outlive the adaptor
    /// @param agents   the same
    ManagerObject(QObject &owner, Service &service, Agents &agents, const QDBusConnection &bus);

    QString state() const;
    QString session() const;
    QStringList waiting() const;
    bool isOnline() const { return m_service.isOnline(); }
    VariantMaps accounts() const;
    VariantMaps lastResults() const;
    QString stateDirectory() const { return m_service.stateDirectory(); }
    QString version() const { return QStringLiteral(KUB_VERSION); }

    /// Tells the bus what of the service has changed.
    void tellChanges();
    void tellEnd(const SessionResult &result);

public Q_SLOTS:
    /// Has a session with the server of an account, as soon as none runs. There are no options yet:
    /// one that is not known is refused.
    void StartSession(const QString &account, const QVariantMap &options,
                      const QDBusMessage &message);
    /// Ends the session of an account, or one that waits.
    void CancelSession(const QString &account, const QDBusMessage &message);
    /// Has an object of the caller's asked what servers ask the user (agents.h), until the caller
    /// leaves the bus.
    void RegisterAgent(const QDBusObjectPath &agent, const QDBusMessage &message);
    void UnregisterAgent(const QDBusObjectPath &agent, const QDBusMessage &message);

Q_SIGNALS:
    void StatusChanged(const QString &state, const QString &session);
    void SessionEnded(const QVariantMap &result);

private:
    void answer(const support::Expected<void, QString> &done, const QDBusMessage &message);
    QVariantMap changingProperties() const;

    Service &m_service;
    Agents &m_agents;
    QDBusConnection m_bus;
    QVariantMap m_told; ///< the properties as the bus knows them
};

} // namespace client
