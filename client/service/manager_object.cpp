#include "manager_object.h"

#include "service_names.h"

#include <QDBusMetaType>
#include <algorithm>
#include <utility>

namespace client {

ManagerObject::ManagerObject(QObject &owner, Service &service, Agents &agents,
                             const QDBusConnection &bus)
    : QDBusAbstractAdaptor(&owner), m_service(service), m_agents(agents), m_bus(bus)
{
    qDBusRegisterMetaType<VariantMaps>();
    m_told = changingProperties();
}

// ---- Properties ----------------------------------------------------------------------------------

QString ManagerObject::state() const
{
    if (m_service.running())
        return QStringLiteral("session");
    return m_service.isOnline() ? QStringLiteral("idle") : QStringLiteral("offline");
}

QString ManagerObject::session() const
{
    return m_service.running() ? m_service.running()->account : QString();
}

QStringList ManagerObject::waiting() const
{
    QStringList names;
    for (const SessionRequest &request : m_service.waiting())
        names += request.account;
    return names;
}

VariantMaps ManagerObject::accounts() const
{
    VariantMaps maps;
    for (const auto &[name, account] : m_service.accounts().accounts()) {
        QVariantMap map{
            {QStringLiteral("name"), name},
            {QStringLiteral("title"), QString::fromUtf8(account.title)},
            {QStringLiteral("server-id"), QString::fromUtf8(account.serverId)},
            {QStringLiteral("interval"), static_cast<quint64>(account.polling.interval.count())},
            {QStringLiteral("failures"), static_cast<quint32>(m_service.failuresOf(name))},
        };
        if (const auto next = m_service.nextSession(name))
            map[QStringLiteral("next")] = static_cast<quint64>(std::max<qint64>(0, next->count()));
        maps += map;
    }
    return maps;
}

VariantMaps ManagerObject::lastResults() const
{
    VariantMaps maps;
    for (const SessionResult &result : m_service.results())
        maps += toVariantMap(result);
    return maps;
}

QVariantMap ManagerObject::changingProperties() const
{
    return {
        {QStringLiteral("State"), state()},
        {QStringLiteral("Session"), session()},
        {QStringLiteral("Waiting"), waiting()},
        {QStringLiteral("Online"), isOnline()},
    };
}

// ---- Signals -------------------------------------------------------------------------------------

void ManagerObject::tellChanges()
{
    const QVariantMap now = changingProperties();
    QVariantMap changed;
    for (auto property = now.begin(); property != now.end(); ++property)
        if (m_told.value(property.key()) != property.value())
            changed.insert(property.key(), property.value());
    m_told = now;
    // Long ones are asked for by those who want them.
    const QStringList invalidated{QStringLiteral("Accounts"), QStringLiteral("LastResults")};
    QDBusMessage signal = QDBusMessage::createSignal(
        QString::fromLatin1(managerPath), QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("PropertiesChanged"));
    signal << QString::fromLatin1(managerInterface) << changed << invalidated;
    m_bus.send(signal);
    if (changed.contains(QStringLiteral("State")) || changed.contains(QStringLiteral("Session")))
        Q_EMIT StatusChanged(state(), session());
}

void ManagerObject::tellEnd(const SessionResult &result)
{
    Q_EMIT SessionEnded(toVariantMap(result));
}

// ---- Methods -------------------------------------------------------------------------------------

void ManagerObject::answer(const support::Expected<void, QString> &done,
                           const QDBusMessage &message)
{
    if (!done)
        m_bus.send(message.createErrorReply(QStringLiteral("org.kub.DmClient1.Error.Refused"),
                                            done.error()));
    else
        m_bus.send(message.createReply());
}

void ManagerObject::StartSession(const QString &account, const QVariantMap &options,
                                 const QDBusMessage &message)
{
    message.setDelayedReply(true);
    if (!options.isEmpty())
        answer(support::Unexpected(QStringLiteral("there is no option %1").arg(options.firstKey())),
               message);
    else
        answer(m_service.requestSession({account, SessionCause::User}), message);
}

void ManagerObject::CancelSession(const QString &account, const QDBusMessage &message)
{
    message.setDelayedReply(true);
    answer(m_service.cancelSession(account), message);
}

void ManagerObject::RegisterAgent(const QDBusObjectPath &agent, const QDBusMessage &message)
{
    message.setDelayedReply(true);
    answer(m_agents.add(message.service(), agent.path()), message);
}

void ManagerObject::UnregisterAgent(const QDBusObjectPath &agent, const QDBusMessage &message)
{
    message.setDelayedReply(true);
    answer(m_agents.remove(message.service(), agent.path()), message);
}

} // namespace client
