#include "silent_bus.h"

#include "file_descriptor.h"

#include <QByteArrayList>
#include <cerrno>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace client {

namespace {

constexpr char pathKey[] = "unix:path=";
constexpr char usualPath[] = "/run/dbus/system_bus_socket";

/// The path of the first bus of an address; empty when it has none.
QByteArray pathOf(const QByteArray &address)
{
    if (address.isEmpty())
        return usualPath;
    const QByteArray first = address.split(';').constFirst();
    if (!first.startsWith(pathKey))
        return {};
    const QByteArray value = first.mid(sizeof pathKey - 1);
    return QByteArray::fromPercentEncoding(value.split(',').constFirst());
}

} // namespace

bool isSilentBus(const QByteArray &address, std::chrono::milliseconds patience)
{
    sockaddr_un bus{};
    const QByteArray path = pathOf(address);
    const auto length = static_cast<std::size_t>(path.size());
    if (path.isEmpty() || length >= sizeof bus.sun_path)
        return false;
    bus.sun_family = AF_UNIX;
    std::memcpy(bus.sun_path, path.constData(), length);
    const handset_state::FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    timeval limit{};
    limit.tv_sec = patience.count() / 1000;
    limit.tv_usec = patience.count() % 1000 * 1000;
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    // A queue that stays full is silence, too.
    if (::connect(socket.get(), reinterpret_cast<const sockaddr *>(&bus), sizeof bus) != 0)
        return errno == EAGAIN;
    // What every client says first; the bus has to answer that it may go on, or not.
    const std::string user = std::to_string(::getuid());
    QByteArray greeting(1, '\0');
    greeting += "AUTH EXTERNAL " + QByteArray::fromStdString(user).toHex() + "\r\n";
    char answer = 0;
    return ::send(socket.get(), greeting.constData(), static_cast<std::size_t>(greeting.size()),
                  MSG_NOSIGNAL) >= 0 &&
           ::recv(socket.get(), &answer, 1, 0) < 0 && errno == EAGAIN;
}

} // namespace client
