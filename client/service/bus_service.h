// A dmclientd on the system bus.
#pragma once

#include "service_module.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QEventLoop>
#include <QObject>

namespace client {

class BusService : public QObject, public RunningService {
    Q_OBJECT
public:
    /// Null when none runs.
    static std::unique_ptr<RunningService> find();

    QString stateDirectory() const override { return m_stateDirectory; }
    support::Expected<QVariantMap, QString> properties() const override;
    support::Expected<void, QString> startSession(const QString &account) override;
    support::Expected<void, QString> cancelSession(const QString &account) override;
    support::Expected<void, QString> registerAgent(UserInteraction &user, int cancelFile) override;
    void setListener(const Listener &listener) override { m_listener = listener; }
    support::Expected<void, QString> listen(const std::function<bool()> &isOver,
                                            int interruptFile) override;

private Q_SLOTS:
    void takeStatus(const QString &state, const QString &session);
    void takeEnd(const QVariantMap &result);

private:
    explicit BusService(const QDBusConnection &bus);

    support::Expected<QDBusMessage, QString> call(const QString &interface, const char *method,
                                                  const QVariantList &arguments) const;

    QDBusConnection m_bus;
    QDBusServiceWatcher m_watcher;
    QObject m_agent;
    QString m_stateDirectory;
    Listener m_listener;
    QEventLoop m_loop;
    std::function<bool()> m_isOver;
    bool m_hasEnded = false;
};

} // namespace client
