#include "notification_listener.h"

#include "journal.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

std::optional<quint64> RefusalCount::add(Clock::time_point now)
{
    ++m_untold;
    if (m_lastLine && now - *m_lastLine < quiet)
        return std::nullopt;
    m_lastLine = now;
    return std::exchange(m_untold, 0);
}

Expected<std::unique_ptr<NotificationListener>, QString>
NotificationListener::open(Service &service, quint16 port)
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
        new NotificationListener(service, std::move(socket)));
}

NotificationListener::NotificationListener(Service &service, handset_state::FileDescriptor socket)
    : m_service(service), m_memory(service.stateDirectory() + QStringLiteral("/client/") +
                                   QString::fromLatin1(notification::memoryFile)),
      m_socket(std::move(socket)), m_notifier(m_socket.get(), QSocketNotifier::Read)
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
        take(QByteArray(buffer.data(), size));
    }
}

void NotificationListener::take(const QByteArray &datagram)
{
    const auto package = notification::readNotificationPush(datagram);
    if (!package) {
        refuse(package.error());
        return;
    }
    const auto request = requestOf(*package, m_service.accounts());
    if (!request) {
        refuse(request.error().reason);
        return;
    }
    if (request->uiMode == notification::UiMode::Interactive) {
        refuse(QStringLiteral("the server of the account %1 wants the user to be asked before the "
                              "session, and nobody can be")
                   .arg(request->account));
        return;
    }
    const Account &account = *m_service.accounts().find(request->account);
    if (const auto kept = remember(*request, account, m_memory); !kept) {
        refuse(kept.error().reason);
        return;
    }
    const auto asked = m_service.requestSession({.account = request->account,
                                                 .cause = SessionCause::Notification,
                                                 .sessionId = request->sessionId,
                                                 .nonce = request->nonce});
    if (!asked)
        refuse(asked.error());
}

void NotificationListener::refuse(const QString &reason)
{
    const auto count = m_refused.add(RefusalCount::Clock::now());
    if (!count)
        return;
    writeJournal(JournalPriority::Warning,
                 *count == 1 ? QStringLiteral("a notification is not obeyed: %1").arg(reason)
                             : QStringLiteral("%1 more notifications are not obeyed, the last "
                                              "because: %2")
                                   .arg(*count)
                                   .arg(reason));
}

} // namespace client
