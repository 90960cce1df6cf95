#include "notification_listener.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

Expected<std::unique_ptr<NotificationListener>, QString>
NotificationListener::open(NotificationHandler &handler, quint16 port)
{
    handset_state::FileDescriptor socket(
        ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    address.sin6_addr = in6addr_any;
    const int isOnlyForIpv6 = 0;
    if (!socket ||
        ::setsockopt(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, &isOnlyForIpv6,
                     sizeof isOnlyForIpv6) != 0 ||
        ::bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return Unexpected(QStringLiteral("cannot listen for notifications on port %1: %2")
                              .arg(port)
                              .arg(QString::fromLocal8Bit(std::strerror(errno))));
    return std::unique_ptr<NotificationListener>(
        new NotificationListener(handler, std::move(socket)));
}

NotificationListener::NotificationListener(NotificationHandler &handler,
                                           handset_state::FileDescriptor socket)
    : m_handler(handler), m_socket(std::move(socket)),
      m_notifier(m_socket.get(), QSocketNotifier::Read)
{
    QObject::connect(&m_notifier, &QSocketNotifier::activated, &m_notifier,
                     [this] { readDatagrams(); });
}

void NotificationListener::readDatagrams()
{
    // So many at a time that a flood leaves the rest of the service its turns.
    constexpr int most = 16;
    // What is cut off was too large anyway.
    std::array<char, notification::Package0::largest * 2> buffer;
    for (int i = 0; i < most; ++i) {
        const ssize_t size = ::recv(m_socket.get(), buffer.data(), buffer.size(), 0);
        if (size < 0)
            return;
        m_handler.handle(QByteArray(buffer.data(), size));
    }
}

} // namespace client
