// How the service tells systemd about itself.
#pragma once

#include <QByteArray>
#include <QString>
#include <QTimer>

namespace client {

/// Says that the service is ready, that it stops, and as long as it lives that it is not stuck: as
/// often as the unit asks for. Says nothing where nobody listens ($NOTIFY_SOCKET).
class ServiceManager {
public:
    /// Takes what concerns it out of the environment, where children would find it.
    ServiceManager();

    void tellReady();
    void tellStopping();
    /// A line for those who ask about the service.
    void tellStatus(const QString &status);

private:
    void tell(const QByteArray &message) const;

    QByteArray m_socket;
    QTimer m_watchdog;
};

} // namespace client
