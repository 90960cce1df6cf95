#include "fake_networkmanager.h"

#include <algorithm>
#include <csignal>
#include <map>
#include <mutex>
#include <semaphore>

#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QFile>
#include <QThread>
#include <QTimer>
#include <QUuid>
#include <gtest/gtest.h>

namespace {

const QString serviceName = QStringLiteral("org.freedesktop.NetworkManager");
const QString connectionInterface =
    QStringLiteral("org.freedesktop.NetworkManager.Settings.Connection");
const QString settingsPath = QStringLiteral("/org/freedesktop/NetworkManager/Settings");

const QTemporaryDir &busDirectory()
{
    static const QTemporaryDir directory;
    return directory;
}

constexpr char busConfiguration[] = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>%1</listen>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="false"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
)";

} // namespace

// ---- The bus ------------------------------------------------------------------------------------

QString PrivateBus::address()
{
    return u"unix:path="_qs + busDirectory().filePath(u"bus"_qs);
}

PrivateBus::PrivateBus()
{
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", address().toUtf8());
    QFile configuration(busDirectory().filePath(u"bus.conf"_qs));
    EXPECT_TRUE(configuration.open(QIODevice::WriteOnly));
    configuration.write(QString::fromUtf8(busConfiguration).arg(address()).toUtf8());
    configuration.close();
    m_daemon.start(u"dbus-daemon"_qs, {u"--nofork"_qs, u"--print-address"_qs,
                                       u"--config-file="_qs + configuration.fileName()});
    EXPECT_TRUE(m_daemon.waitForReadyRead()) << "the bus does not start";
}

void PrivateBus::freeze()
{
    EXPECT_EQ(::kill(static_cast<pid_t>(m_daemon.processId()), SIGSTOP), 0);
}

void PrivateBus::thaw()
{
    EXPECT_EQ(::kill(static_cast<pid_t>(m_daemon.processId()), SIGCONT), 0);
}

PrivateBus::~PrivateBus()
{
    m_daemon.kill();
    m_daemon.waitForFinished();
    removeSocket();
}

void PrivateBus::removeSocket()
{
    QFile::remove(busDirectory().filePath(u"bus"_qs));
}

// ---- The daemon ---------------------------------------------------------------------------------

class FakeNetworkManager::Service : public QDBusVirtualObject {
public:
    explicit Service(int connections) : m_connections(connections)
    {
        m_idle.setSingleShot(true);
        m_idle.setInterval(20);
        QObject::connect(&m_idle, &QTimer::timeout, this, [this] { answerHeld(); });
    }

    QString introspect(const QString &) const override { return {}; }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        const std::lock_guard guard(m_mutex);
        const std::string method = message.member().toStdString();
        m_calls.push_back({method, message.path(), message.arguments()});
        if (method == m_batchedMethod) {
            m_held.push_back(message);
            m_mostUnanswered = std::max(m_mostUnanswered, static_cast<int>(m_held.size()));
            m_connection = std::make_unique<QDBusConnection>(connection);
            m_idle.start();
            return true;
        }
        const QDBusMessage answer = answerTo(message);
        if (method == "GetSecrets" && m_signalsSecrets &&
            answer.type() == QDBusMessage::ReplyMessage)
            connection.send(updated(message.path()));
        send(connection, answer);
        return true;
    }

    static QDBusMessage updated(const QString &path)
    {
        return QDBusMessage::createSignal(path, connectionInterface, u"Updated"_qs);
    }

    std::mutex m_mutex;
    std::map<std::string, Handler> m_handlers;
    bool m_signalsSecrets = true;
    std::string m_batchedMethod;
    int m_mostUnanswered = 0;
    std::vector<RecordedCall> m_calls;

private:
    static void send(const QDBusConnection &connection, const QDBusMessage &answer)
    {
        if (answer.type() == QDBusMessage::ReplyMessage ||
            answer.type() == QDBusMessage::ErrorMessage)
            connection.send(answer);
    }

    void answerHeld()
    {
        const std::lock_guard guard(m_mutex);
        for (const QDBusMessage &message : m_held)
            send(*m_connection, answerTo(message));
        m_held.clear();
    }

    QDBusMessage answerTo(const QDBusMessage &call) const
    {
        const auto handler = m_handlers.find(call.member().toStdString());
        if (handler != m_handlers.end())
            return handler->second(call);
        if (call.member() == u"ListConnections") {
            QList<QDBusObjectPath> paths;
            for (int index = 0; index < m_connections; ++index)
                paths.append(QDBusObjectPath(connectionPath(index)));
            return call.createReply(QVariant::fromValue(paths));
        }
        if (call.member() == u"GetSettings") {
            const int index = call.path().section(u'/', -1).toInt();
            return call.createReply(QVariant::fromValue(connectionSettings(index)));
        }
        if (call.member() == u"GetSecrets") {
            const ConnectionSettings secrets = {
                {u"gsm"_qs, {{u"password"_qs, u"secret"_qs}, {u"pin"_qs, u"1234"_qs}}}};
            return call.createReply(QVariant::fromValue(secrets));
        }
        if (call.member() == u"Update2")
            return call.createReply(QVariantMap());
        return call.createReply();
    }

    int m_connections;
    QTimer m_idle;
    std::vector<QDBusMessage> m_held;
    std::unique_ptr<QDBusConnection> m_connection;
};

class FakeNetworkManager::Thread : public QThread {
public:
    explicit Thread(int connections) : m_connections(connections)
    {
        start();
        m_isReady.acquire();
    }
    ~Thread() override
    {
        quit();
        wait();
    }
    void run() override
    {
        {
            Service object(m_connections);
            QDBusConnection connection = QDBusConnection::connectToBus(PrivateBus::address(), name);
            EXPECT_TRUE(connection.registerVirtualObject(u"/org/freedesktop/NetworkManager"_qs,
                                                         &object, QDBusConnection::SubPath));
            EXPECT_TRUE(connection.registerService(serviceName));
            service = &object;
            m_isReady.release();
            exec();
        }
        QDBusConnection::disconnectFromBus(name);
    }

    Service *service = nullptr;
    const QString name = QUuid::createUuid().toString(); ///< of its connection to the bus

private:
    int m_connections;
    std::binary_semaphore m_isReady{0};
};

FakeNetworkManager::FakeNetworkManager(int connections) : m_connections(connections)
{
    qDBusRegisterMetaType<ConnectionSettings>();
    m_thread = std::make_unique<Thread>(connections);
}

FakeNetworkManager::~FakeNetworkManager() = default;

QString FakeNetworkManager::connectionPath(int index)
{
    return settingsPath + u'/' + QString::number(index);
}

ConnectionSettings FakeNetworkManager::connectionSettings(int index)
{
    return {{u"connection"_qs,
             {{u"id"_qs, u"Fake %1"_qs.arg(index)},
              {u"uuid"_qs, u"%1-0000-4000-8000-000000000000"_qs.arg(index, 8, 10, QChar(u'0'))},
              {u"type"_qs, u"gsm"_qs}}},
            {u"gsm"_qs, {{u"apn"_qs, u"fake.apn"_qs}}}};
}

void FakeNetworkManager::giveUpName()
{
    EXPECT_TRUE(QDBusConnection(m_thread->name).unregisterService(serviceName));
}

void FakeNetworkManager::handle(const std::string &method, Handler handler)
{
    {
        const std::lock_guard guard(m_thread->service->m_mutex);
        m_thread->service->m_handlers[method] = std::move(handler);
    }
    if (method != "GetSettings" && method != "GetSecrets")
        return;
    for (int index = 0; index < m_connections; ++index)
        signalChange(index);
}

void FakeNetworkManager::signalChange(int index, Wait wait)
{
    signal(Service::updated(connectionPath(index)), wait);
}

void FakeNetworkManager::signal(const QDBusMessage &message, Wait wait)
{
    const QDBusConnection connection(m_thread->name);
    connection.send(message);
    if (wait == Wait::Yes)
        connection.call(QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_qs,
                                                       u"/org/freedesktop/DBus"_qs,
                                                       u"org.freedesktop.DBus"_qs, u"GetId"_qs));
}

void FakeNetworkManager::handOutSecretsWithoutASignal()
{
    const std::lock_guard guard(m_thread->service->m_mutex);
    m_thread->service->m_signalsSecrets = false;
}

void FakeNetworkManager::answerInBatches(const std::string &method)
{
    const std::lock_guard guard(m_thread->service->m_mutex);
    m_thread->service->m_batchedMethod = method;
}

int FakeNetworkManager::mostUnanswered() const
{
    const std::lock_guard guard(m_thread->service->m_mutex);
    return m_thread->service->m_mostUnanswered;
}

std::vector<RecordedCall> FakeNetworkManager::takeCalls()
{
    const std::lock_guard guard(m_thread->service->m_mutex);
    return std::exchange(m_thread->service->m_calls, {});
}
