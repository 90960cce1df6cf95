// Messages over HTTP, against a server on this machine that answers as the test says.

#include "http_transport.h"

#include "credentials.h"

#include <QCoreApplication>
#include <QFile>
#include <QSslKey>
#include <QSslServer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>
#include <deque>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace client {

namespace {

/// What one request gets: the bytes of an answer, or a connection that is closed or kept open.
struct Reply {
    QByteArray bytes;
    bool isClosed = true; ///< after the bytes
};

Reply ok(const QByteArray &body, const QByteArray &headers = {})
{
    return {"HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n" +
            headers + "Connection: close\r\n\r\n" + body};
}

Reply status(const QByteArray &line, const QByteArray &headers = {})
{
    return {"HTTP/1.1 " + line + "\r\nContent-Length: 0\r\n" + headers +
            "Connection: close\r\n\r\n"};
}

/// Serves the replies one after another on a server that listens already; the last one for ever.
class HttpServer : public QObject {
public:
    explicit HttpServer(QTcpServer &server) : m_server(server)
    {
        EXPECT_TRUE(server.listen(QHostAddress::LocalHost));
        connect(&server, &QTcpServer::pendingConnectionAvailable, this, [this] {
            while (QTcpSocket *const socket = m_server.nextPendingConnection())
                serve(socket);
        });
    }

    QUrl url(const char *scheme = "http", const char *path = "/") const
    {
        return QUrl(QStringLiteral("%1://127.0.0.1:%2%3")
                        .arg(QString::fromLatin1(scheme))
                        .arg(m_server.serverPort())
                        .arg(QString::fromLatin1(path)));
    }

    std::deque<Reply> replies;
    std::vector<QByteArray> requests;

private:
    void serve(QTcpSocket *socket)
    {
        const auto buffer = std::make_shared<QByteArray>();
        connect(socket, &QTcpSocket::readyRead, this, [this, socket, buffer] {
            *buffer += socket->readAll();
            const qsizetype head = buffer->indexOf("\r\n\r\n");
            const qsizetype length = buffer->toLower().indexOf("content-length: ");
            if (head < 0 || length < 0)
                return;
            const QByteArray digits = buffer->mid(length + 16).split('\r').front();
            if (buffer->size() < head + 4 + digits.toInt())
                return;
            requests.push_back(*buffer);
            buffer->clear();
            const Reply reply = replies.front();
            if (replies.size() > 1)
                replies.pop_front();
            socket->write(reply.bytes);
            if (reply.isClosed)
                socket->disconnectFromHost();
        });
    }

    QTcpServer &m_server;
};

class HttpTransportTest : public testing::Test {
protected:
    HttpTransportTest()
    {
        options.retries = 0;
        options.retryDelay = std::chrono::milliseconds(1);
    }

    TransportResult exchange(const QUrl &url, const TransportRequest &like = {})
    {
        const auto transport = HttpTransport::create(options);
        EXPECT_TRUE(transport) << transport.error().toStdString();
        TransportRequest request = like;
        request.url = url;
        if (request.contentType.isEmpty())
            request.contentType = "application/vnd.syncml.dm+xml";
        return (*transport)->exchange(request);
    }
    TransportResult exchange() { return exchange(server.url()); }
    static std::string text(const TransportResult &result)
    {
        if (!result)
            return "error: " + result.error().text.toStdString();
        return result->body.toStdString();
    }
    std::string here(const char *rest) const
    {
        return "error: " + server.url().toString().toStdString() + ": " + rest;
    }

    HttpTransport::Options options;
    QTcpServer listener;
    HttpServer server{listener};
};

TEST_F(HttpTransportTest, PostsTheMessageWithItsHeaders)
{
    server.replies = {ok("answer", "Content-Type: application/vnd.syncml.dm+xml\r\n")};
    TransportRequest request;
    request.body = QByteArray("a\0b", 3);
    request.contentType = "application/vnd.syncml.dm+wbxml";
    request.hmac = "algorithm=MD5, username=\"a\", mac=b";
    const TransportResult result = exchange(server.url("http", "/dm?x=1"), request);
    ASSERT_EQ(text(result), "answer");
    EXPECT_EQ(result->contentType, "application/vnd.syncml.dm+xml");
    EXPECT_EQ(result->url, server.url("http", "/dm?x=1"));
    const QByteArray &sent = server.requests.at(0);
    EXPECT_TRUE(sent.startsWith("POST /dm?x=1 HTTP/1.1\r\n")) << sent.toStdString();
    EXPECT_TRUE(sent.endsWith(QByteArray("\r\n\r\na\0b", 7)));
    const QByteArray headers = sent.toLower();
    for (const char *const header :
         {"content-type: application/vnd.syncml.dm+wbxml\r\n", "content-length: 3\r\n",
          "accept: application/vnd.syncml.dm+xml, application/vnd.syncml.dm+wbxml, "
          "application/octet-stream\r\n",
          "accept-charset: utf-8\r\n", "cache-control: no-store\r\n", "user-agent: dmclient/",
          "x-syncml-hmac: algorithm=md5, username=\"a\", mac=b\r\n"})
        EXPECT_TRUE(headers.contains(header)) << header << "\nin\n" << sent.toStdString();
}

TEST_F(HttpTransportTest, GivesTheServersHmac)
{
    server.replies = {ok("answer", "X-SyncML-HMAC: username=\"s\", mac=m\r\n")};
    const TransportResult result = exchange();
    EXPECT_EQ(result->hmac, QByteArray("username=\"s\", mac=m"));
}

TEST_F(HttpTransportTest, EmptyBodyIsAnAnswer)
{
    server.replies = {ok("")};
    EXPECT_EQ(text(exchange()), "");
    server.replies = {status("204 No Content")};
    EXPECT_EQ(text(exchange()), "");
}

TEST_F(HttpTransportTest, RefusalIsAnErrorWithItsReason)
{
    server.replies = {status("404 Not Found")};
    EXPECT_EQ(text(exchange()), here("HTTP 404 Not Found"));
    server.replies = {status("500 Oops")};
    EXPECT_EQ(text(exchange()), here("HTTP 500 Oops"));
    server.replies = {status("401 Unauthorized", "WWW-Authenticate: Basic realm=\"x\"\r\n")};
    EXPECT_EQ(text(exchange()), here("HTTP 401 Unauthorized"));
    EXPECT_EQ(server.requests.size(), 3U);
}

TEST_F(HttpTransportTest, NobodyThereIsAnError)
{
    const QUrl url = server.url();
    listener.close();
    EXPECT_EQ(text(exchange(url)),
              "error: " + url.toString().toStdString() + ": Connection refused");
}

// ---- Ends before the answer ----------------------------------------------------------------------

/// A server that takes a request and says nothing; only the end that is tested can end the
/// exchange.
class SilentServer : public HttpTransportTest {
protected:
    SilentServer()
    {
        options.timeLimit = std::chrono::hours(1);
        options.retries = 2;
        options.interruptFile = file;
        server.replies = {{{}, false}};
    }
    ~SilentServer() override { ::close(file); }
    std::string ending(const TransportRequest &like = {})
    {
        return text(exchange(server.url(), like));
    }

    const int file = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
};

TEST_F(SilentServer, ExchangeIsOverWhenItIsInterrupted)
{
    QTimer::singleShot(1, &server, [this] { ::eventfd_write(file, 1); });
    EXPECT_EQ(ending(), here("interrupted"));
    EXPECT_EQ(ending(), here("interrupted")) << "from then on";
}

TEST_F(SilentServer, PauseBeforeARepetitionIsOverWhenItIsInterrupted)
{
    options.retryDelay = std::chrono::hours(1);
    server.replies = {status("503 Busy")};
    QObject::connect(&listener, &QTcpServer::pendingConnectionAvailable, &server, [this] {
        QTimer::singleShot(200, &server, [this] { ::eventfd_write(file, 1); });
    });
    ending();
    EXPECT_LE(server.requests.size(), 1U);
}

TEST_F(SilentServer, ExchangeIsOverWhenItsTimeIs)
{
    TransportRequest request;
    request.timeLimit = std::chrono::milliseconds(20);
    EXPECT_EQ(ending(request), here("no answer in the time that was left"));
    EXPECT_LE(server.requests.size(), 1U);
}

TEST_F(SilentServer, FarewellIsSentInSpiteOfAnInterruptAndOnce)
{
    ::eventfd_write(file, 1);
    server.replies = {status("503 Busy"), ok("again")};
    TransportRequest request;
    request.isFarewell = true;
    EXPECT_EQ(ending(request), here("HTTP 503 Busy"));
    EXPECT_EQ(server.requests.size(), 1U);
}

// ---- Repetitions ---------------------------------------------------------------------------------

TEST_F(HttpTransportTest, BusyServerIsAskedAgain)
{
    options.retries = 2;
    server.replies = {status("503 Busy"), status("502 Bad Gateway"), ok("at last")};
    TransportRequest request;
    request.body = "the message";
    EXPECT_EQ(text(exchange(server.url(), request)), "at last");
    ASSERT_EQ(server.requests.size(), 3U);
    EXPECT_TRUE(server.requests.at(2).endsWith("the message"));
}

TEST_F(HttpTransportTest, BusyServerIsNotAskedForEver)
{
    options.retries = 2;
    server.replies = {status("503 Busy")};
    EXPECT_EQ(text(exchange()), here("HTTP 503 Busy"));
    EXPECT_EQ(server.requests.size(), 3U);
}

TEST_F(HttpTransportTest, BrokenAnswerIsAskedForAgain)
{
    options.retries = 1;
    server.replies = {{"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf"}, ok("whole")};
    EXPECT_EQ(text(exchange()), "whole");
    options.retries = 0;
    server.replies = {{"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf"}};
    EXPECT_TRUE(text(exchange()).starts_with(here("")));
}

TEST_F(HttpTransportTest, RefusalIsFinal)
{
    options.retries = 2;
    server.replies = {status("400 Bad Request")};
    EXPECT_EQ(text(exchange()), here("HTTP 400 Bad Request"));
    EXPECT_EQ(server.requests.size(), 1U);
}

TEST_F(HttpTransportTest, ServerThatDoesNotAnswerInTimeIsGivenUp)
{
    options.timeLimit = std::chrono::milliseconds(100);
    server.replies = {{"", false}};
    EXPECT_EQ(text(exchange()), here("no answer within 0.1 s"));
}

TEST_F(HttpTransportTest, AnswerThatNeverEndsIsGivenUp)
{
    options.timeLimit = std::chrono::milliseconds(100);
    server.replies = {{"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf", false}};
    EXPECT_EQ(text(exchange()), here("no answer within 0.1 s"));
}

// ---- Sizes ---------------------------------------------------------------------------------------

TEST_F(HttpTransportTest, AnswerUpToTheLimitIsRead)
{
    options.responseBytes = 100000;
    const QByteArray body(100000, 'x');
    server.replies = {ok(body)};
    EXPECT_EQ(text(exchange()), body.toStdString());
}

TEST_F(HttpTransportTest, AnswerBeyondTheLimitIsNotRead)
{
    options.responseBytes = 100000;
    options.retries = 2;
    for (const QByteArray &head : {QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 100001\r\n\r\n"),
                                   QByteArray("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n")}) {
        server.requests.clear();
        server.replies = {{head + QByteArray(100001, 'x')}};
        EXPECT_EQ(text(exchange()), here("the answer is larger than 100000 bytes"));
        EXPECT_EQ(server.requests.size(), 1U) << "it would be no smaller the next time";
    }
}

TEST_F(HttpTransportTest, PackedAnswerIsNotUnpacked)
{
    server.replies = {ok("packed", "Content-Encoding: gzip\r\n")};
    EXPECT_EQ(text(exchange()), "packed");
    EXPECT_TRUE(server.requests.at(0).toLower().contains("accept-encoding: identity\r\n"));
}

// ---- Redirects -----------------------------------------------------------------------------------

TEST_F(HttpTransportTest, RedirectIsFollowedWithTheSameMessage)
{
    for (const char *const line : {"301 Moved", "302 Found", "307 Temporary", "308 Permanent"}) {
        server.requests.clear();
        server.replies = {status(line, "Location: /there?x=1\r\n"), ok("there")};
        TransportRequest request;
        request.body = "the message";
        const TransportResult result = exchange(server.url(), request);
        EXPECT_EQ(text(result), "there");
        ASSERT_EQ(server.requests.size(), 2U) << line;
        EXPECT_TRUE(server.requests.at(1).startsWith("POST /there?x=1 ")) << line;
        EXPECT_TRUE(server.requests.at(1).endsWith("the message"));
        EXPECT_EQ(result->url, server.url("http", "/there?x=1"));
    }
}

TEST_F(HttpTransportTest, RedirectIsNotFollowedForEver)
{
    server.replies = {status("302 Found", "Location: /again\r\n")};
    EXPECT_EQ(text(exchange()), here("redirects again and again"));
    EXPECT_EQ(server.requests.size(), 6U) << "the message and five redirects";
}

TEST_F(HttpTransportTest, RedirectGoesNowhereButHttp)
{
    server.replies = {status("302 Found", "Location: file:///etc/passwd\r\n")};
    EXPECT_EQ(text(exchange()), here("redirects to file:///etc/passwd, which is not HTTP"));
}

TEST_F(HttpTransportTest, SeeOtherWouldLoseTheMessage)
{
    server.replies = {status("303 See Other", "Location: /there\r\n")};
    EXPECT_EQ(text(exchange()), here("HTTP 303 See Other"));
    EXPECT_EQ(server.requests.size(), 1U);
}

// ---- TLS -----------------------------------------------------------------------------------------

class HttpsTransportTest : public testing::Test {
protected:
    HttpsTransportTest()
    {
        QFile certificate(QStringLiteral(KUB_TEST_FOLDER "/localhost.pem"));
        QFile key(QStringLiteral(KUB_TEST_FOLDER "/localhost.key"));
        EXPECT_TRUE(certificate.open(QIODevice::ReadOnly) && key.open(QIODevice::ReadOnly));
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.setLocalCertificate(QSslCertificate(&certificate));
        tls.setPrivateKey(QSslKey(&key, QSsl::Ec));
        listener.setSslConfiguration(tls);
        options.retries = 0;
        options.timeLimit = std::chrono::seconds(20);
        options.authoritiesFile = QStringLiteral(KUB_TEST_FOLDER "/localhost.pem");
    }
    std::string exchange(const QUrl &url)
    {
        const auto transport = HttpTransport::create(options);
        if (!transport)
            return transport.error().toStdString();
        TransportRequest request;
        request.url = url;
        request.contentType = "application/vnd.syncml.dm+xml";
        const TransportResult result = (*transport)->exchange(request);
        return result ? result->body.toStdString() : "error: " + result.error().text.toStdString();
    }

    HttpTransport::Options options;
    QSslServer listener;
    HttpServer server{listener};
};

TEST_F(HttpsTransportTest, ServerThatAnAuthorityVouchesForIsTrusted)
{
    server.replies = {ok("answer")};
    EXPECT_EQ(exchange(server.url("https")), "answer");
}

TEST_F(HttpsTransportTest, UnknownServerIsNotTrustedAndHearsNothing)
{
    options.authoritiesFile.clear();
    options.retries = 2;
    server.replies = {ok("answer")};
    EXPECT_EQ(exchange(server.url("https")),
              "error: " + server.url("https").toString().toStdString() +
                  ": The certificate is self-signed, and untrusted");
    EXPECT_EQ(server.requests.size(), 0U);
}

TEST_F(HttpsTransportTest, CertificateOfAnotherHostIsNotTrusted)
{
    server.replies = {ok("answer")};
    QUrl url = server.url("https");
    url.setHost(QStringLiteral("localhost.localdomain"));
    // The name leads to this machine only where the resolver knows it; the certificate is for
    // 127.0.0.1 and "localhost" only, so it must not be trusted whatever happens.
    EXPECT_TRUE(exchange(url).starts_with("error: "));
    EXPECT_EQ(server.requests.size(), 0U);
}

TEST_F(HttpsTransportTest, RedirectDoesNotGiveUpTls)
{
    QTcpServer plain;
    HttpServer other(plain);
    other.replies = {ok("plain")};
    server.replies = {
        status("307 Temporary", "Location: " + other.url().toString().toLatin1() + "\r\n")};
    EXPECT_EQ(exchange(server.url("https")),
              "error: " + server.url("https").toString().toStdString() + ": redirects to " +
                  other.url().toString().toStdString() + ", which gives up TLS");
    EXPECT_EQ(other.requests.size(), 0U);
}

TEST_F(HttpsTransportTest, RedirectMayBeginTls)
{
    QTcpServer plain;
    HttpServer other(plain);
    other.replies = {
        status("307 Temporary", "Location: " + server.url("https").toString().toLatin1() + "\r\n")};
    server.replies = {ok("protected")};
    EXPECT_EQ(exchange(other.url()), "protected");
}

TEST_F(HttpsTransportTest, FileOfAuthoritiesHasToBeUsable)
{
    options.authoritiesFile = QStringLiteral("/nowhere/ca.pem");
    EXPECT_EQ(exchange(QUrl()), "cannot read /nowhere/ca.pem: No such file or directory");
    QTemporaryDir directory;
    options.authoritiesFile = directory.filePath(QStringLiteral("ca.pem"));
    QFile empty(options.authoritiesFile);
    ASSERT_TRUE(empty.open(QIODevice::WriteOnly));
    EXPECT_EQ(exchange(QUrl()),
              options.authoritiesFile.toStdString() + " holds no PEM certificate");
}

} // namespace

} // namespace client

int main(int argc, char *argv[])
{
    // The transport waits in an event loop.
    const QCoreApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
