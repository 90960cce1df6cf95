// Who is answered on the loopback address, and for how long.

#include "page_server.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTcpSocket>
#include <QTimer>
#include <gtest/gtest.h>

namespace client {

namespace {

void wait(const std::function<bool()> &isOver)
{
    QEventLoop loop;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &loop, [&] {
        if (isOver())
            loop.quit();
    });
    QTimer::singleShot(std::chrono::seconds(20), &loop, &QEventLoop::quit);
    timer.start(1);
    loop.exec();
    ASSERT_TRUE(isOver()) << "gave up waiting";
}

class PageServerTest : public testing::Test {
protected:
    void SetUp() override
    {
        auto server = PageServer::listen([this](const PageRequest &request) {
            requests.push_back(request.method + ' ' + request.path + ' ' + request.body);
            return PageAnswer{200, "text/html", "the page"};
        });
        ASSERT_TRUE(server) << server.error().toStdString();
        m_server = *std::move(server);
    }

    std::unique_ptr<QTcpSocket> connected()
    {
        auto socket = std::make_unique<QTcpSocket>();
        bool wasConnected = false; // which it may not stay until somebody looks
        QObject::connect(socket.get(), &QTcpSocket::connected, socket.get(),
                         [&wasConnected] { wasConnected = true; });
        socket->connectToHost(QHostAddress(QHostAddress::LocalHost),
                              static_cast<quint16>(m_server->address().port()));
        wait([&] { return wasConnected; });
        QObject::disconnect(socket.get(), &QTcpSocket::connected, nullptr, nullptr);
        return socket;
    }

    /// Everything that comes until the server closes the connection.
    QByteArray answerTo(const QByteArray &bytes)
    {
        const auto socket = connected();
        socket->write(bytes);
        wait([&] { return socket->state() == QTcpSocket::UnconnectedState; });
        return socket->readAll();
    }

    QByteArray request(const QByteArray &method, const QByteArray &path) const
    {
        const QUrl url = m_server->address();
        return method + ' ' + url.path().toLatin1() + path +
               " HTTP/1.1\r\nHost: " + url.authority().toLatin1() + "\r\n\r\n";
    }

    QByteArrayList requests;
    std::unique_ptr<PageServer> m_server;
};

TEST_F(PageServerTest, AnswersWhoKnowsTheAddress)
{
    const QByteArray answer = answerTo(request("GET", ""));
    EXPECT_TRUE(answer.startsWith("HTTP/1.1 200 OK\r\n")) << answer.toStdString();
    EXPECT_TRUE(answer.endsWith("\r\n\r\nthe page"));
    EXPECT_TRUE(answer.contains("\r\nContent-Length: 8\r\n"));
    for (const char *field : {"Cache-Control: no-store", "X-Content-Type-Options: nosniff",
                              "X-Frame-Options: DENY", "Referrer-Policy: no-referrer"})
        EXPECT_TRUE(answer.contains(QByteArray("\r\n") + field + "\r\n")) << field;
    EXPECT_EQ(requests, QByteArrayList{"GET  "});
}

TEST_F(PageServerTest, HandsNothingOnFromStrangers)
{
    EXPECT_TRUE(answerTo("GET / HTTP/1.1\r\nHost: " + m_server->address().authority().toLatin1() +
                         "\r\n\r\n")
                    .startsWith("HTTP/1.1 404 "));
    EXPECT_TRUE(answerTo("GET " + m_server->address().path().toLatin1() +
                         " HTTP/1.1\r\nHost: rebound.example\r\n\r\n")
                    .startsWith("HTTP/1.1 403 "));
    EXPECT_TRUE(requests.isEmpty());
}

TEST_F(PageServerTest, HasAnotherTokenEachTime)
{
    const QByteArray first = m_server->address().path().toLatin1();
    EXPECT_EQ(first.size(), 34);
    SetUp();
    EXPECT_NE(m_server->address().path().toLatin1(), first);
}

TEST_F(PageServerTest, ListensOnLoopbackOnly)
{
    EXPECT_EQ(m_server->address().host(), QStringLiteral("127.0.0.1"));
    QTcpSocket socket;
    // The whole of 127/8 is this machine; a server on any address would answer there.
    socket.connectToHost(QHostAddress(QStringLiteral("127.0.0.2")),
                         static_cast<quint16>(m_server->address().port()));
    wait([&] { return socket.state() == QTcpSocket::UnconnectedState; });
    EXPECT_EQ(socket.error(), QTcpSocket::ConnectionRefusedError);
}

TEST_F(PageServerTest, SendsEventsToEveryOpenStreamAfterWhatItHasMissed)
{
    m_server->setGreeting([] { return QByteArrayList{"{\"missed\":1}"}; });
    const auto one = connected();
    const auto other = connected();
    QByteArray received;
    QByteArray receivedByOther;
    one->write(request("GET", "events"));
    other->write(request("GET", "events"));
    wait([&] { return (received += one->readAll()).endsWith("data: {\"missed\":1}\n\n"); });
    wait(
        [&] { return (receivedByOther += other->readAll()).endsWith("data: {\"missed\":1}\n\n"); });
    EXPECT_TRUE(received.contains("\r\nContent-Type: text/event-stream\r\n"));
    m_server->sendEvent("{\"next\":2}");
    wait([&] { return (received += one->readAll()).endsWith("data: {\"next\":2}\n\n"); });
    wait([&] { return (receivedByOther += other->readAll()).endsWith("data: {\"next\":2}\n\n"); });
    EXPECT_TRUE(requests.isEmpty());
}

TEST_F(PageServerTest, StreamThatWasClosedDoesNotDisturbTheOthers)
{
    const auto gone = connected();
    const auto one = connected();
    QByteArray received;
    gone->write(request("GET", "events"));
    one->write(request("GET", "events"));
    wait([&] { return (received += one->readAll()).contains("\r\n\r\n"); });
    wait([&] { return gone->bytesAvailable() > 0; });
    gone->abort();
    for (int count = 0; count < 100; ++count)
        m_server->sendEvent("{\"n\":" + QByteArray::number(count) + '}');
    wait([&] { return (received += one->readAll()).contains("{\"n\":99}"); });
}

TEST_F(PageServerTest, HasRoomForSoManyAndNotMore)
{
    std::vector<std::unique_ptr<QTcpSocket>> sockets;
    for (int count = 0; count < PageServer::mostConnections; ++count)
        sockets.push_back(connected());
    const auto late = connected();
    wait([&] { return late->state() == QTcpSocket::UnconnectedState; });
    sockets.pop_back();
    wait([&] { return answerTo(request("GET", "")).startsWith("HTTP/1.1 200 "); });
}

TEST_F(PageServerTest, HasSoManyStreamsAndNotMore)
{
    std::vector<std::unique_ptr<QTcpSocket>> sockets;
    for (int count = 0; count < PageServer::mostStreams; ++count) {
        sockets.push_back(connected());
        sockets.back()->write(request("GET", "events"));
        wait([&] { return sockets.back()->bytesAvailable() > 0; });
    }
    EXPECT_TRUE(answerTo(request("GET", "events")).startsWith("HTTP/1.1 503 "));
    EXPECT_TRUE(answerTo(request("GET", "")).startsWith("HTTP/1.1 200 "));
}

TEST_F(PageServerTest, TakesOneRequestOfAConnection)
{
    const QByteArray twice = request("GET", "") + request("GET", "");
    EXPECT_TRUE(answerTo(twice).startsWith("HTTP/1.1 400 "));
    EXPECT_TRUE(requests.isEmpty());
}

} // namespace

} // namespace client

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
