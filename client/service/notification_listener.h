// Notifications of servers that come over UDP.
#pragma once

#include "expected.h"
#include "file_descriptor.h"
#include "service.h"
#include "session_request.h"

#include <QSocketNotifier>
#include <chrono>
#include <memory>
#include <optional>

namespace client {

/// Counts what is refused, and says when it is time for a line about it: anybody can send as much
/// as they like.
class RefusalCount {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds quiet = std::chrono::minutes(1);

    /// One more. @return how many there were since the last line, when there is to be one now
    std::optional<quint64> add(Clock::time_point now);

private:
    quint64 m_untold = 0;
    std::optional<Clock::time_point> m_lastLine;
};

/// Takes notifications in WAP pushes from a port, and asks the service for the sessions that those
/// of its servers want. Nothing is answered, whatever comes.
class NotificationListener {
public:
    /// Listens on all addresses of the device.
    /// @param service  has to outlive the listener
    /// @return never null; the error is a sentence with the port and the reason
    static support::Expected<std::unique_ptr<NotificationListener>, QString> open(Service &service,
                                                                                  quint16 port);

private:
    NotificationListener(Service &service, handset_state::FileDescriptor socket);

    void readDatagrams();
    void take(const QByteArray &datagram);
    void refuse(const QString &reason);

    Service &m_service;
    const notification::NotificationMemory m_memory;
    handset_state::FileDescriptor m_socket;
    QSocketNotifier m_notifier;
    RefusalCount m_refused;
};

} // namespace client
