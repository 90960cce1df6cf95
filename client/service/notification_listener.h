// Notifications of servers that come over UDP.
#pragma once

#include "expected.h"
#include "file_descriptor.h"
#include "notification_handler.h"

#include <QSocketNotifier>
#include <memory>

namespace client {

/// Hands what comes to a port on to be handled. Nothing is answered, whatever comes.
class NotificationListener {
public:
    /// Listens on all addresses of the device.
    /// @param handler  has to outlive the listener
    /// @return never null; the error is a sentence with the port and the reason
    static support::Expected<std::unique_ptr<NotificationListener>, QString>
    open(NotificationHandler &handler, quint16 port);

private:
    NotificationListener(NotificationHandler &handler, handset_state::FileDescriptor socket);

    void readDatagrams();

    NotificationHandler &m_handler;
    handset_state::FileDescriptor m_socket;
    QSocketNotifier m_notifier;
};

} // namespace client
