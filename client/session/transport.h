// How a session reaches its server.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QUrl>
#include <chrono>
#include <optional>
#include <utility>
#include <vector>

namespace client {

/// One message to a server.
struct TransportRequest {
    QUrl url;
    QByteArray body;
    QByteArray contentType;
    std::optional<QByteArray> hmac; ///< value of the header that carries an HMAC proof
    /// For the whole exchange, repetitions included; 0: as long as the transport takes.
    std::chrono::milliseconds timeLimit{0};
    /// The message only tells that the session is over: it is neither repeated nor interrupted.
    bool isFarewell = false;
};

/// A server's answer to it.
struct TransportResponse {
    QByteArray body; ///< empty when the server has nothing more to say
    QByteArray contentType;
    std::optional<QByteArray> hmac;
    QUrl url; ///< where the answer came from, redirects followed
};

struct TransportError {
    QString text;            ///< one sentence without its full stop, for a person
    bool isOverTime = false; ///< the time limit of the request has ended the exchange
};

/// Names and values of HTTP headers.
using HttpHeaders = std::vector<std::pair<QByteArray, QByteArray>>;

/// One HTTP request, as it goes out.
struct HttpRequest {
    QByteArray method;
    QUrl url;
    HttpHeaders headers; ///< without those that the network library adds
    qsizetype size = 0;  ///< bytes of the body
};

/// How a connection is protected. Empty texts for what is not known.
struct TlsConnection {
    QString version;
    QString cipher;
    QString subject; ///< of the server's certificate, as the next ones
    QString issuer;
    QByteArray sha256; ///< of the certificate's DER, hexadecimal
    QDateTime until;
};

/// What came of one HTTP request.
struct HttpAnswer {
    int status = 0; ///< 0 when there was no answer
    HttpHeaders headers;
    qsizetype size = 0; ///< bytes of the body
    std::optional<TlsConnection> tls;
    QString failure; ///< why it is not an answer that counts, as of TransportError; else empty
};

/// Watches how messages are carried. The credentials in what it is told are those that go out.
class ExchangeObserver {
public:
    virtual ~ExchangeObserver() = default;

    virtual void requestSent(const HttpRequest &request) = 0;
    virtual void requestAnswered(const HttpAnswer &answer) = 0;
    /// The next attempt comes after this time.
    virtual void waits(std::chrono::milliseconds time, const QString &reason) = 0;
};

using TransportResult = support::Expected<TransportResponse, TransportError>;

/// Carries messages, one at a time.
class Transport {
public:
    virtual ~Transport() = default;

    /// Sends one message and waits for its answer.
    virtual TransportResult exchange(const TransportRequest &request) = 0;
};

/// Whether going from one address to another gives up TLS.
inline bool givesUpTls(const QUrl &from, const QUrl &to)
{
    return from.scheme() == u"https" && to.scheme() != u"https";
}

} // namespace client
