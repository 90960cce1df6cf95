// A NetworkManager that does what a test says, for faults that the real one does not have.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <QDBusMessage>
#include <QProcess>
#include <QTemporaryDir>

#include "connection_settings.h"

/// A message bus of this process. DBUS_SYSTEM_BUS_ADDRESS names it from the first one on; the
/// address is the same for all, because a process reads it once.
class PrivateBus {
public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus &) = delete;
    PrivateBus &operator=(const PrivateBus &) = delete;

    static QString address();
    /// What is at the address, when there is no bus.
    static void removeSocket();

    /// Stops its process, so that it accepts connections and says nothing.
    void freeze();
    void thaw();

private:
    QProcess m_daemon;
};

struct RecordedCall {
    std::string method;
    QString path;
    QVariantList arguments;
};

/// Lives in a thread of its own until it is destroyed; then its connection to the bus ends, as with
/// a process that ends.
class FakeNetworkManager {
public:
    enum class Wait { Yes, No };
    /// Makes the answer to a call; a message of another type than an answer or an error means none.
    using Handler = std::function<QDBusMessage(const QDBusMessage &call)>;

    /// Has that many connections of type gsm, called "Fake 0", "Fake 1" and so on, at the paths
    /// connectionPath.
    explicit FakeNetworkManager(int connections);
    ~FakeNetworkManager();
    FakeNetworkManager(const FakeNetworkManager &) = delete;
    FakeNetworkManager &operator=(const FakeNetworkManager &) = delete;

    static QString connectionPath(int index);
    /// What GetSettings answers by itself.
    static ConnectionSettings connectionSettings(int index);

    /// Leaves the name of NetworkManager to another one, and stays on the bus. For handlers.
    void giveUpName();
    /// Answers the calls of a method in another way than by itself. When these are a connection's
    /// settings or secrets it signals that all connections have changed.
    void handle(const std::string &method, Handler handler);
    /// Signals that a connection has changed, and waits until the bus has passed that on, as it has
    /// for a program that has had the daemon change it.
    void signalChange(int index, Wait wait = Wait::Yes);
    /// Sends all that listen a signal in the same way.
    void signal(const QDBusMessage &message, Wait wait = Wait::Yes);
    /// By itself it signals a change of the connection before, as the real one does.
    void handOutSecretsWithoutASignal();
    /// Keeps the calls of a method unanswered until no more arrive, and then answers them all.
    void answerInBatches(const std::string &method);
    /// @return the largest number of calls that were unanswered at the same time.
    int mostUnanswered() const;
    /// All calls since the beginning or the last time.
    std::vector<RecordedCall> takeCalls();

private:
    class Service;
    class Thread;
    const int m_connections;
    std::unique_ptr<Thread> m_thread;
};
