#include "silent_bus.h"

#include <QDeadlineTimer>
#include <QList>
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

/// @return the name of the Unix socket, with a NUL in front of an abstract one; empty for none.
QByteArray socketName(const QByteArray &address)
{
    constexpr char transport[] = "unix:";
    if (!address.startsWith(transport))
        return {};
    for (const QByteArray &entry : address.mid(sizeof transport - 1).split(',')) {
        const QByteArray value = QByteArray::fromPercentEncoding(entry.mid(entry.indexOf('=') + 1));
        if (entry.startsWith("path="))
            return value;
        if (entry.startsWith("abstract="))
            return QByteArray(1, '\0') + value;
    }
    return {};
}

/// @return what is left, in milliseconds; 1 when nothing is, because 0 means no limit to a socket.
int leftMs(const QDeadlineTimer &deadline)
{
    return static_cast<int>(std::max<qint64>(1, deadline.remainingTime()));
}

/// Waits for room when so many wait already that there is none for one more.
/// @return a connected socket; -1 for none, with the reason in errno: EAGAIN for no room in time.
int connectTo(const QByteArray &name, const QDeadlineTimer &deadline)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const auto size = static_cast<std::size_t>(name.size());
    errno = EINVAL;
    if (name.isEmpty() || size >= sizeof address.sun_path)
        return -1;
    std::memcpy(address.sun_path, name.constData(), size);
    const std::size_t terminator = name[0] == '\0' ? 0 : 1;
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size + terminator);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket < 0)
        return -1;
    const int left = leftMs(deadline);
    const timeval limit = {.tv_sec = left / 1000, .tv_usec = left % 1000 * 1000};
    ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (::connect(socket, reinterpret_cast<sockaddr *>(&address), length) == 0)
        return socket;
    const int reason = errno;
    ::close(socket);
    errno = reason;
    return -1;
}

bool isSilent(int socket, const QDeadlineTimer &deadline)
{
    // The beginning of every D-Bus connection; the bus names the ways of proving who one is.
    constexpr char greeting[] = "\0AUTH\r\n";
    if (::send(socket, greeting, sizeof greeting - 1, MSG_NOSIGNAL) < 0)
        return false;
    pollfd answer = {.fd = socket, .events = POLLIN, .revents = 0};
    int events = 0;
    do
        events = ::poll(&answer, 1, leftMs(deadline));
    while (events < 0 && errno == EINTR);
    return events == 0;
}

} // namespace

bool isBusSilent(const QByteArray &addresses, int limitMs)
{
    const QDeadlineTimer deadline(limitMs);
    for (const QByteArray &address : addresses.split(';')) {
        const int socket = connectTo(socketName(address), deadline);
        if (socket < 0 && errno == EAGAIN)
            return true;
        if (socket < 0)
            continue;
        const bool isWithoutAnswer = isSilent(socket, deadline);
        ::close(socket);
        return isWithoutAnswer;
    }
    return false;
}

QByteArray systemBusAddresses()
{
    const QByteArray addresses = qgetenv("DBUS_SYSTEM_BUS_ADDRESS");
    return addresses.isEmpty() ? QByteArrayLiteral("unix:path=/var/run/dbus/system_bus_socket")
                               : addresses;
}
