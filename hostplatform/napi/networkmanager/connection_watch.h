// What happens to NetworkManager's connections, as its signals tell it.
#pragma once

#include "profile_store.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <memory>

struct DBusConnection;
struct DBusMessage;

/// What has happened to connections, as object paths. A path that is in several lists is to be
/// looked at once.
struct ConnectionNews {
    /// Nothing that was known counts any more: the daemon is another one, signals are lost, or
    /// there are more of them than it is worth to look at one by one.
    bool isEverything = false;
    QStringList added;
    QStringList changed; ///< settings, secrets, or who may see them
    QStringList removed; ///< or not for this user to see any more
};

/// Listens on a connection to the bus of its own, which no other thread reads from: so what has
/// arrived can be looked at at any moment, without a call and without waiting. A bus passes on the
/// messages of a program in their order, and NetworkManager signals a change before it answers the
/// program that asked for it. So whatever another program has had an answer to is found here.
class ConnectionWatch {
public:
    /// Connects to the first of the D-Bus addresses that takes a connection, and listens from then
    /// on.
    /// @param limitMs  how long that may take, in milliseconds
    /// @return NAPI_ERROR_UNAVAILABLE with the reason; nothing is open then
    StoreResult open(const QByteArray &addresses, int limitMs);
    void close() { m_connection.reset(); }
    /// @return whether signals arrive; take() is what notices that they do not any more.
    bool isOpen() const;

    /// What has arrived since the last time. Signals of the daemon's kind from somebody else do not
    /// count. When it is not open, or is not any more, everything is news.
    /// @param daemon  the unique name on the bus of the daemon whose signals count
    ConnectionNews take(const QString &daemon);

private:
    struct Closer {
        void operator()(DBusConnection *connection) const;
    };

    std::unique_ptr<DBusConnection, Closer> m_connection;
};
