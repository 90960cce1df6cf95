#include "silent_bus.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QList>

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

/// @return a connected socket; -1 for none, with the reason in errno.
int connectTo(const QByteArray &name)
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
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0 || ::connect(socket, reinterpret_cast<sockaddr *>(&address), length) == 0)
        return socket;
    const int reason = errno;
    ::close(socket);
    errno = reason;
    return -1;
}

bool isSilent(int socket, int limitMs)
{
    // The beginning of every D-Bus connection; the bus names the ways of proving who one is.
    constexpr char greeting[] = "\0AUTH\r\n";
    if (::send(socket, greeting, sizeof greeting - 1, MSG_NOSIGNAL) < 0)
        return false;
    QElapsedTimer timer;
    timer.start();
    pollfd answer = {.fd = socket, .events = POLLIN, .revents = 0};
    int events = 0;
    do {
        const auto left = std::max<qint64>(0, limitMs - timer.elapsed());
        events = ::poll(&answer, 1, static_cast<int>(left));
    } while (events < 0 && errno == EINTR);
    return events == 0;
}

} // namespace

bool isBusSilent(const QByteArray &addresses, int limitMs)
{
    for (const QByteArray &address : addresses.split(';')) {
        const int socket = connectTo(socketName(address));
        if (socket < 0 && errno == EAGAIN)
            return true; // so many wait already that there is no room for one more
        if (socket < 0)
            continue;
        const bool isWithoutAnswer = isSilent(socket, limitMs);
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
