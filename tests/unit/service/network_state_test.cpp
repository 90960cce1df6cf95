// Whether the device is online, from a NetworkManager that a test plays.

#include "event_loop.h"
#include "network_state.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <vector>

namespace client {

namespace {

const QString manager = QStringLiteral("org.freedesktop.NetworkManager");
const QString managerObject = QStringLiteral("/org/freedesktop/NetworkManager");

constexpr uint disconnected = 20;
constexpr uint connectedLocally = 50;
constexpr uint connectedToSite = 60;
constexpr uint connected = 70;

constexpr char busConfiguration[] = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=%1/bus</listen>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="false"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
)";

class PlayedManager : public QDBusVirtualObject {
public:
    explicit PlayedManager(uint state) : m_state(state) {}

    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &bus) override
    {
        return bus.send(message.createReply(QVariant::fromValue(QDBusVariant(m_state))));
    }

private:
    uint m_state;
};

/// It has a connection before anybody has its answer of not having one.
class LateManager final : public PlayedManager {
public:
    LateManager() : PlayedManager(disconnected) {}

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &bus) override
    {
        QDBusMessage change =
            QDBusMessage::createSignal(managerObject, manager, QStringLiteral("StateChanged"));
        change << connected;
        return bus.send(change) && PlayedManager::handleMessage(message, bus);
    }
};

class NetworkStateTest : public testing::Test {
protected:
    NetworkStateTest()
    {
        QFile configuration(directory.filePath(QStringLiteral("bus.conf")));
        EXPECT_TRUE(configuration.open(QIODevice::WriteOnly));
        configuration.write(QString::fromLatin1(busConfiguration).arg(directory.path()).toLatin1());
        configuration.close();
        daemon.start(QStringLiteral("dbus-daemon"),
                     {QStringLiteral("--nofork"), QStringLiteral("--print-address"),
                      QStringLiteral("--config-file=") + configuration.fileName()});
        EXPECT_TRUE(daemon.waitForReadyRead()) << "the bus does not start";
    }
    ~NetworkStateTest() override
    {
        for (const char *const name : {"service", "manager"})
            QDBusConnection::disconnectFromBus(QString::fromLatin1(name));
        daemon.kill();
        daemon.waitForFinished();
    }

    QDBusConnection connection(const char *name)
    {
        return QDBusConnection::connectToBus(QStringLiteral("unix:path=") + directory.path() +
                                                 QStringLiteral("/bus"),
                                             QString::fromLatin1(name));
    }
    /// A NetworkManager that begins to run.
    void play(PlayedManager &played)
    {
        QDBusConnection bus = connection("manager");
        ASSERT_TRUE(bus.registerVirtualObject(managerObject, &played));
        ASSERT_TRUE(bus.registerService(manager));
    }
    void stopPlaying() { connection("manager").unregisterService(manager); }
    void signal(uint state)
    {
        QDBusMessage message =
            QDBusMessage::createSignal(managerObject, manager, QStringLiteral("StateChanged"));
        message << state;
        connection("manager").send(message);
    }
    /// What was told last, once something was.
    bool told()
    {
        EXPECT_TRUE(waitUntil([this] { return !states.empty(); }));
        const bool state = states.empty() ? false : states.back();
        states.clear();
        return state;
    }

    QTemporaryDir directory;
    QProcess daemon;
    std::vector<bool> states;
    NetworkState::Changed listener = [this](bool isOnline) { states.push_back(isOnline); };
};

TEST_F(NetworkStateTest, ADeviceWithoutNetworkManagerIsOnline)
{
    const NetworkState state(connection("service"), listener);
    EXPECT_TRUE(told());
}

TEST_F(NetworkStateTest, IsWhatNetworkManagerSaysFromTheBeginningOn)
{
    PlayedManager offline(disconnected);
    play(offline);
    const NetworkState state(connection("service"), listener);
    EXPECT_FALSE(told());
    signal(connectedLocally);
    EXPECT_FALSE(told());
    signal(connectedToSite);
    EXPECT_TRUE(told());
    signal(connected);
    EXPECT_TRUE(told());
    signal(disconnected);
    EXPECT_FALSE(told());
}

TEST_F(NetworkStateTest, AnAnswerOfBeforeAChangeMeansNothingAfterIt)
{
    LateManager late;
    play(late);
    const NetworkState state(connection("service"), listener);
    ASSERT_TRUE(waitUntil([this] { return !states.empty(); }));
    signal(connected);
    ASSERT_TRUE(waitUntil([this] { return states.size() > 1; }));
    EXPECT_EQ(states, (std::vector<bool>{true, true}));
}

TEST_F(NetworkStateTest, ANetworkManagerThatComesAndGoesIsAsked)
{
    const NetworkState state(connection("service"), listener);
    EXPECT_TRUE(told());
    PlayedManager offline(disconnected);
    play(offline);
    EXPECT_FALSE(told());
    stopPlaying();
    EXPECT_TRUE(told());
}

} // namespace

} // namespace client
