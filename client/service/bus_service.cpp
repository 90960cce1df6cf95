#include "bus_service.h"

#include "agent_object.h"
#include "service_names.h"
#include "silent_bus.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QSocketNotifier>
#include <optional>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

const QString service = QString::fromLatin1(serviceName);
const QString path = QString::fromLatin1(managerPath);
const QString manager = QString::fromLatin1(managerInterface);

/// What a service that works answers long before, in milliseconds.
constexpr int timeLimit = 10'000;

/// For the first answer of a bus, which needs none of its clients to give it.
constexpr auto busPatience = std::chrono::seconds(2);

/// Lists of maps come in their form on the wire.
QVariant unpacked(const QVariant &value)
{
    if (value.metaType() != QMetaType::fromType<QDBusArgument>())
        return value;
    const auto argument = value.value<QDBusArgument>();
    if (argument.currentSignature() != u"aa{sv}")
        return value;
    QList<QVariantMap> maps;
    argument >> maps;
    return QVariant::fromValue(maps);
}

} // namespace

std::unique_ptr<RunningService> BusService::find()
{
    // Whoever wants a session has it without the service then.
    if (isSilentBus(qgetenv("DBUS_SYSTEM_BUS_ADDRESS"), busPatience))
        return nullptr;
    const QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(service))
        return nullptr;
    auto found = std::unique_ptr<BusService>(new BusService(bus));
    const auto answer = found->call(QStringLiteral("org.freedesktop.DBus.Properties"), "Get",
                                    {manager, QStringLiteral("StateDirectory")});
    if (!answer)
        return nullptr;
    found->m_stateDirectory =
        answer->arguments().value(0).value<QDBusVariant>().variant().toString();
    return found;
}

BusService::BusService(const QDBusConnection &bus)
    : m_bus(bus), m_watcher(service, bus, QDBusServiceWatcher::WatchForUnregistration)
{
    m_bus.connect(service, path, manager, QStringLiteral("StatusChanged"), this,
                  SLOT(takeStatus(QString, QString)));
    m_bus.connect(service, path, manager, QStringLiteral("SessionEnded"), this,
                  SLOT(takeEnd(QVariantMap)));
    connect(&m_watcher, &QDBusServiceWatcher::serviceUnregistered, this, [this] {
        m_hasEnded = true;
        m_loop.quit();
    });
}

Expected<QDBusMessage, QString> BusService::call(const QString &interface, const char *method,
                                                 const QVariantList &arguments) const
{
    QDBusMessage message =
        QDBusMessage::createMethodCall(service, path, interface, QString::fromLatin1(method));
    message.setArguments(arguments);
    const QDBusMessage answer = m_bus.call(message, QDBus::Block, timeLimit);
    if (answer.type() == QDBusMessage::ReplyMessage)
        return answer;
    return Unexpected(answer.errorMessage());
}

Expected<QVariantMap, QString> BusService::properties() const
{
    const auto answer =
        call(QStringLiteral("org.freedesktop.DBus.Properties"), "GetAll", {manager});
    if (!answer)
        return Unexpected(answer.error());
    auto properties = qdbus_cast<QVariantMap>(answer->arguments().value(0));
    for (QVariant &value : properties)
        value = unpacked(value);
    return properties;
}

Expected<void, QString> BusService::startSession(const QString &account)
{
    const auto answer = call(manager, "StartSession", {account, QVariantMap()});
    return answer ? Expected<void, QString>() : Unexpected(answer.error());
}

Expected<void, QString> BusService::cancelSession(const QString &account)
{
    const auto answer = call(manager, "CancelSession", {account});
    return answer ? Expected<void, QString>() : Unexpected(answer.error());
}

Expected<void, QString> BusService::registerAgent(UserInteraction &user, int cancelFile)
{
    const QString agentPath = path + QStringLiteral("/Agent");
    new AgentObject(m_agent, user, cancelFile, m_bus); // m_agent's
    if (!m_bus.registerObject(agentPath, &m_agent))
        return Unexpected(QStringLiteral("cannot be an agent on the system bus"));
    const auto answer =
        call(manager, "RegisterAgent", {QVariant::fromValue(QDBusObjectPath(agentPath))});
    return answer ? Expected<void, QString>() : Unexpected(answer.error());
}

Expected<void, QString> BusService::listen(const std::function<bool()> &isOver, int interruptFile)
{
    m_isOver = isOver;
    std::optional<QSocketNotifier> interrupt;
    if (interruptFile >= 0) {
        interrupt.emplace(interruptFile, QSocketNotifier::Read);
        connect(&*interrupt, &QSocketNotifier::activated, &m_loop, &QEventLoop::quit);
    }
    if (!m_hasEnded)
        m_loop.exec();
    if (m_hasEnded)
        return Unexpected(QStringLiteral("dmclientd has ended"));
    return {};
}

void BusService::takeStatus(const QString &state, const QString &session)
{
    if (m_listener.statusChanged)
        m_listener.statusChanged(state, session);
    if (m_isOver && m_isOver())
        m_loop.quit();
}

void BusService::takeEnd(const QVariantMap &result)
{
    if (m_listener.sessionEnded)
        m_listener.sessionEnded(result);
    if (m_isOver && m_isOver())
        m_loop.quit();
}

} // namespace client
