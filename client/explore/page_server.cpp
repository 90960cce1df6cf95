#include "page_server.h"

#include <QRandomGenerator>
#include <QTcpSocket>
#include <QTimer>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

constexpr int tokenWords = 4; // 128 bits

QByteArray makeToken()
{
    quint32 words[tokenWords];
    QRandomGenerator::system()->fillRange(words);
    return QByteArray(reinterpret_cast<const char *>(words), sizeof words).toHex();
}

QByteArray statusLine(int status)
{
    return "HTTP/1.1 " + QByteArray::number(status) + (status == 200 ? " OK" : " Refused") + "\r\n";
}

/// What every answer says: it is for this page, and kept nowhere.
constexpr char commonFields[] = "Cache-Control: no-store\r\n"
                                "X-Content-Type-Options: nosniff\r\n"
                                "X-Frame-Options: DENY\r\n"
                                "Referrer-Policy: no-referrer\r\n"
                                "Cross-Origin-Resource-Policy: same-origin\r\n"
                                "Cross-Origin-Opener-Policy: same-origin\r\n"
                                "Connection: close\r\n";

QByteArray eventOf(const QByteArray &json)
{
    return "data: " + json + "\n\n";
}

} // namespace

PageServer::PageServer(Handler handler) : m_handler(std::move(handler)) {}

PageServer::~PageServer()
{
    // What the sockets would call is gone before they are.
    for (QTcpSocket *const socket : m_connections)
        socket->disconnect();
}

Expected<std::unique_ptr<PageServer>, QString> PageServer::listen(Handler handler)
{
    std::unique_ptr<PageServer> server(new PageServer(std::move(handler)));
    if (!server->m_server.listen(QHostAddress::LocalHost))
        return Unexpected(
            QStringLiteral("cannot listen on 127.0.0.1: %1").arg(server->m_server.errorString()));
    server->m_door = {makeToken(),
                      "127.0.0.1:" + QByteArray::number(server->m_server.serverPort())};
    QObject::connect(&server->m_server, &QTcpServer::newConnection, &server->m_server,
                     [here = server.get()] { here->accept(); });
    return server;
}

QUrl PageServer::address() const
{
    return QUrl(QString::fromLatin1("http://" + m_door.authority + '/' + m_door.token + '/'));
}

void PageServer::accept()
{
    while (QTcpSocket *const socket = m_server.nextPendingConnection()) {
        if (m_connections.size() >= mostConnections) {
            socket->abort();
            socket->deleteLater();
            continue;
        }
        m_connections.insert(socket);
        QObject::connect(socket, &QTcpSocket::disconnected, socket, [this, socket] {
            m_connections.erase(socket);
            m_streams.erase(socket);
            socket->deleteLater();
        });
        const auto reader = std::make_shared<PageRequestReader>(m_door);
        QObject::connect(socket, &QTcpSocket::readyRead, socket,
                         [this, socket, reader] { read(*socket, *reader); });
        QTimer::singleShot(requestTime, socket, [this, socket] {
            if (!m_streams.contains(socket))
                socket->abort();
        });
    }
}

void PageServer::read(QTcpSocket &socket, PageRequestReader &reader)
{
    const auto request = reader.take(socket.readAll());
    if (!request)
        return;
    // One request a connection: nothing after it is looked at.
    QObject::disconnect(&socket, &QTcpSocket::readyRead, nullptr, nullptr);
    if (*request)
        answer(socket, **request);
    else
        send(socket, {request->error().status, "text/plain; charset=utf-8",
                      request->error().reason + '\n'});
}

void PageServer::answer(QTcpSocket &socket, const PageRequest &request)
{
    if (request.method == "GET" && request.path == "events")
        openStream(socket);
    else
        send(socket, m_handler(request));
}

void PageServer::openStream(QTcpSocket &socket)
{
    if (m_streams.size() >= mostStreams)
        return send(socket, {503, "text/plain; charset=utf-8", "too many pages are open\n"});
    m_streams.insert(&socket);
    QByteArray text =
        statusLine(200) + "Content-Type: text/event-stream\r\n" + commonFields + "\r\n";
    for (const QByteArray &line : m_greeting ? m_greeting() : QByteArrayList())
        text += eventOf(line);
    socket.write(text);
}

void PageServer::sendEvent(const QByteArray &json)
{
    const std::set<QTcpSocket *> streams = m_streams; // one that is closed leaves the set
    for (QTcpSocket *const socket : streams) {
        if (socket->bytesToWrite() > mostWaitingBytes)
            socket->abort();
        else
            socket->write(eventOf(json));
    }
}

void PageServer::send(QTcpSocket &socket, const PageAnswer &answer)
{
    QByteArray text = statusLine(answer.status) + "Content-Type: " + answer.contentType + "\r\n" +
                      "Content-Length: " + QByteArray::number(answer.body.size()) + "\r\n";
    socket.write(text + commonFields + "\r\n" + answer.body);
    socket.disconnectFromHost();
}

} // namespace client
