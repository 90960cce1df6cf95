// What the service tells the system.

#include "datagram.h"
#include "event_loop.h"
#include "journal.h"
#include "service_manager.h"

#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace client {

namespace {

/// A socket that somebody sends to.
class Receiver {
public:
    explicit Receiver(const QByteArray &path)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
        EXPECT_EQ(::bind(m_socket, reinterpret_cast<const sockaddr *>(&address), sizeof address),
                  0);
    }
    ~Receiver() { ::close(m_socket); }
    Receiver(const Receiver &) = delete;
    Receiver &operator=(const Receiver &) = delete;

    /// Empty when nothing has come.
    QByteArray take()
    {
        QByteArray message(1000, '\0');
        const auto length = ::recv(m_socket, message.data(), 1000, MSG_DONTWAIT);
        message.truncate(std::max<qsizetype>(0, length));
        return message;
    }

private:
    int m_socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

class ServiceManagerTest : public testing::Test {
protected:
    ~ServiceManagerTest() override
    {
        for (const char *const name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
            qunsetenv(name);
    }

    QTemporaryDir directory;
    QByteArray path = QFile::encodeName(directory.filePath(QStringLiteral("socket")));
    Receiver receiver{path};
};

TEST_F(ServiceManagerTest, IsToldWhenTheServiceIsReadyAndWhenItStops)
{
    qputenv("NOTIFY_SOCKET", path);
    ServiceManager manager;
    EXPECT_FALSE(qEnvironmentVariableIsSet("NOTIFY_SOCKET")) << "children would speak for it";
    EXPECT_EQ(receiver.take(), "");
    manager.tellReady();
    EXPECT_EQ(receiver.take(), "READY=1");
    manager.tellStatus(QStringLiteral("a\nREADY=0"));
    EXPECT_EQ(receiver.take(), "STATUS=a READY=0");
    manager.tellStopping();
    EXPECT_EQ(receiver.take(), "STOPPING=1");
}

TEST_F(ServiceManagerTest, HearsFromTheServiceAsOftenAsItAsksFor)
{
    qputenv("NOTIFY_SOCKET", path);
    qputenv("WATCHDOG_USEC", "20000");
    qputenv("WATCHDOG_PID", QByteArray::number(::getpid()));
    const ServiceManager manager;
    QByteArray message;
    for (int time = 0; time < 3; ++time) {
        ASSERT_TRUE(waitUntil([&] { return !(message = receiver.take()).isEmpty(); }));
        EXPECT_EQ(message, "WATCHDOG=1");
    }
}

TEST_F(ServiceManagerTest, AsksForSignsOfLifeOfTheProcessItMeans)
{
    qputenv("NOTIFY_SOCKET", path);
    qputenv("WATCHDOG_USEC", "2000");
    qputenv("WATCHDOG_PID", "1");
    const ServiceManager manager;
    int rounds = 0;
    ASSERT_TRUE(waitUntil([&rounds] { return ++rounds > 5; }));
    EXPECT_EQ(receiver.take(), "");
}

TEST_F(ServiceManagerTest, IsNotNeeded)
{
    ServiceManager manager;
    manager.tellReady();
    EXPECT_FALSE(sendDatagram(path + "-of-nobody", "x"));
    EXPECT_FALSE(sendDatagram(QByteArray(200, 'x'), "x")) << "longer than an address can be";
}

TEST(JournalTest, AnEntryHasItsFields)
{
    EXPECT_EQ(journalEntry(JournalPriority::Warning, QStringLiteral("it is so"),
                           {{"DMCLIENT_ACCOUNT", QStringLiteral("Größe")}}),
              "MESSAGE=it is so\nPRIORITY=4\nSYSLOG_IDENTIFIER=dmclientd\n"
              "DMCLIENT_ACCOUNT=Gr\xc3\xb6\xc3\x9f"
              "e\n");
}

TEST(JournalTest, NoValueMakesAFieldOfItsOwnOrSteersATerminal)
{
    EXPECT_EQ(journalEntry(JournalPriority::Error, QStringLiteral("a\nPRIORITY=7\x1b[31m"),
                           {{"DMCLIENT_ACCOUNT", QStringLiteral(u"b\u009b")}}),
              "MESSAGE=a\\nPRIORITY=7\\x1b[31m\nPRIORITY=3\nSYSLOG_IDENTIFIER=dmclientd\n"
              "DMCLIENT_ACCOUNT=b\\xc2\\x9b\n");
}

} // namespace

} // namespace client
