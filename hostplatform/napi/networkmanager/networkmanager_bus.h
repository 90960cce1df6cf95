// Calls to NetworkManager over D-Bus: each with a time limit, and a limited number at a time.
#pragma once

#include "connection_watch.h"
#include "profile_store.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <functional>
#include <optional>
#include <utility>

/// Why a call did not do what it should.
enum class Cause {
    None,         ///< it did
    NoObject,     ///< the connection that was called does not exist
    NoSecrets,    ///< there is no secret to hand out
    NoDaemon,     ///< nothing was called: NetworkManager is not on the bus any more
    NotPermitted, ///< this user may not do that
    Other
};

struct BusReply {
    QDBusMessage message; ///< with the arguments of the answer unless the call failed
    Cause cause = Cause::None;
    StoreResult result; ///< NAPI_OK exactly with Cause::None
};

/// The system bus and the NetworkManager on it. Works in threads without an event loop.
///
/// All calls go to the one daemon that connect has found, by its unique name on the bus: object
/// paths of connections mean something else after a restart of the daemon.
class NetworkManagerBus {
public:
    /// How long a call may take, in milliseconds.
    static constexpr int callLimitMs = 5000;
    /// The same after a call that got no answer in its time, until the next one that does: so that
    /// a daemon that has stopped does not make each of a thousand calls wait.
    static constexpr int impatientLimitMs = 500;
    /// How long the daemon may have been silent before it is asked for a sign, in milliseconds.
    /// What it signals can be on its way for a moment after a program has noticed the change in
    /// another way than by an answer; when it answers, that has arrived.
    static constexpr int silenceLimitMs = 10;
    /// The bus refuses the 129th unanswered call of a connection.
    static constexpr int callsInFlight = 64;

    NetworkManagerBus();
    ~NetworkManagerBus();
    NetworkManagerBus(const NetworkManagerBus &) = delete;
    NetworkManagerBus &operator=(const NetworkManagerBus &) = delete;

    /// Finds the bus and the daemon on it unless both are known already, and looks at what the
    /// daemon has signalled. Starts no daemon.
    /// @return NAPI_ERROR_UNAVAILABLE when there is no bus or no NetworkManager on it.
    StoreResult connect();
    /// What has happened to connections since the last time, as far as connect has seen it.
    ConnectionNews takeNews() { return std::exchange(m_news, {}); }

    BusReply callSettings(const QString &method, const QVariantList &arguments = {});
    BusReply callConnection(const QString &path, const QString &method,
                            const QVariantList &arguments = {});
    /// Calls GetSecrets. The daemon signals that a connection has changed before it hands out
    /// secrets of it, although nothing has; that signal is not among the news.
    BusReply callForSecrets(const QString &path, const QString &setting);
    /// Makes one call without arguments to each connection, several at a time. The answers arrive
    /// in the order of the paths. The first that `take` returns a failure for ends it.
    StoreResult callConnections(
        const QStringList &paths, const QString &method,
        const std::function<StoreResult(const QString &path, const BusReply &reply)> &take);

private:
    QDBusMessage message(const QString &path, const QString &interface, const QString &method,
                         const QVariantList &arguments) const;
    BusReply call(const QDBusMessage &message);
    BusReply judge(const QDBusMessage &message, const QString &method);
    void lookForNews();
    void dropOwnSignal(const QString &path, qsizetype signalsBefore);
    StoreResult connectToBus();
    StoreResult connectToDaemon();
    StoreResult findDaemon();
    BusReply askForASign();
    int limitMs() const;
    void disconnect();

    QString m_connectionName;
    std::optional<QDBusConnection> m_connection;
    ConnectionWatch m_watch; ///< open as long as the connection is
    ConnectionNews m_news;
    bool m_isDaemonInDoubt = false;
    /// Whether secrets have been handed out with a signal each time.
    std::optional<bool> m_areSecretsSignalled;
    QString m_daemon;            ///< unique name, empty for none
    QElapsedTimer m_sinceAnswer; ///< of the daemon's
    QString m_unansweredMethod;  ///< empty when the last call of each method was answered
};
