#include "service_manager.h"

#include "datagram.h"

#include <chrono>
#include <unistd.h>

namespace client {

namespace {

QByteArray takeVariable(const char *name)
{
    const QByteArray value = qgetenv(name);
    qunsetenv(name);
    return value;
}

} // namespace

ServiceManager::ServiceManager() : m_socket(takeVariable("NOTIFY_SOCKET"))
{
    const std::chrono::microseconds limit(takeVariable("WATCHDOG_USEC").toLongLong());
    const QByteArray process = takeVariable("WATCHDOG_PID");
    if (limit.count() <= 0 ||
        (!process.isEmpty() && process.toLongLong() != static_cast<qint64>(::getpid())))
        return;
    // Twice as often as has to be.
    m_watchdog.setInterval(std::chrono::duration_cast<std::chrono::milliseconds>(limit / 2));
    QObject::connect(&m_watchdog, &QTimer::timeout, &m_watchdog, [this] { tell("WATCHDOG=1"); });
    m_watchdog.start();
}

void ServiceManager::tellReady()
{
    tell("READY=1");
}

void ServiceManager::tellStopping()
{
    tell("STOPPING=1");
}

void ServiceManager::tellStatus(const QString &status)
{
    tell("STATUS=" + status.toUtf8().replace('\n', ' '));
}

void ServiceManager::tell(const QByteArray &message) const
{
    if (!m_socket.isEmpty())
        sendDatagram(m_socket, message);
}

} // namespace client
