// How a session reaches its server.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <chrono>
#include <optional>

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
