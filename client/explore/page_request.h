// Reading the requests of a browser.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <optional>

namespace client {

/// A request that may be answered: its head, and as much of its body as has come.
struct PageRequest {
    QByteArray method;
    QByteArray path; ///< after the token, "" for the page itself
    QByteArray body;
};

/// What a browser has to know and to be to be answered.
struct PageDoor {
    QByteArray token;     ///< first name of every path
    QByteArray authority; ///< "127.0.0.1:40123", which the Host has to be
};

/// Why a request is not answered: a status of HTTP and one sentence without its full stop.
struct PageRefusal {
    int status = 400;
    QByteArray reason;
};

/// Takes a request apart as it arrives.
///
/// Whoever does not come through the door is refused before the first byte of a body is kept, and
/// so is whatever a browser on this page does not send. Nothing is guessed: a head that can be read
/// in two ways is one that somebody made for that.
class PageRequestReader {
public:
    static constexpr qsizetype headBytes = 16 * 1024;
    static constexpr qsizetype bodyBytes = 8 * 1024 * 1024;

    explicit PageRequestReader(PageDoor door) : m_door(std::move(door)) {}

    /// Takes what has arrived.
    /// @return the request once it is complete, or why there will be none; nothing more is taken
    ///         then
    std::optional<support::Expected<PageRequest, PageRefusal>> take(const QByteArray &bytes);

private:
    support::Expected<void, PageRefusal> readHead(const QByteArray &head);

    const PageDoor m_door;
    QByteArray m_bytes; ///< of the head, then of the body
    PageRequest m_request;
    qsizetype m_bodySize = -1; ///< none before the head is read
};

} // namespace client
