// A page for one person on this machine, and what it asks for.
#pragma once

#include "page_request.h"

#include <QTcpServer>
#include <QUrl>
#include <functional>
#include <memory>
#include <set>

class QTcpSocket;

namespace client {

/// An answer to a request.
struct PageAnswer {
    int status = 200;
    QByteArray contentType = "application/json";
    QByteArray body;
};

/// Listens on 127.0.0.1 only and answers who knows its address: the token in it is random, and
/// whoever reads it on the terminal is the person that this is for. Other pages in the same
/// browser, names that are bound to this machine's address, and other users of the machine are
/// kept out. Runs in the caller's event loop.
class PageServer {
public:
    static constexpr int mostConnections = 32;
    static constexpr int mostStreams = 8;
    static constexpr qsizetype mostWaitingBytes =
        64 * 1024 * 1024; ///< of a stream that is not read
    static constexpr std::chrono::seconds requestTime{20};

    using Handler = std::function<PageAnswer(const PageRequest &request)>;

    /// @param handler  answers every request but "GET events", the stream of events
    /// @return never null; the error is a sentence
    static support::Expected<std::unique_ptr<PageServer>, QString> listen(Handler handler);
    ~PageServer();

    /// Of the page, with the token.
    QUrl address() const;
    /// Sends a line of JSON to every stream that is open.
    void sendEvent(const QByteArray &json);
    /// Is called for each stream that is opened; what it returns goes to that one first, a line of
    /// JSON each.
    void setGreeting(std::function<QByteArrayList()> greeting) { m_greeting = std::move(greeting); }

private:
    explicit PageServer(Handler handler);

    void accept();
    void read(QTcpSocket &socket, PageRequestReader &reader);
    void answer(QTcpSocket &socket, const PageRequest &request);
    void openStream(QTcpSocket &socket);
    static void send(QTcpSocket &socket, const PageAnswer &answer);

    const Handler m_handler;
    std::function<QByteArrayList()> m_greeting;
    PageDoor m_door;
    QTcpServer m_server;
    std::set<QTcpSocket *> m_connections; ///< children of m_server
    std::set<QTcpSocket *> m_streams;     ///< of them
};

} // namespace client
