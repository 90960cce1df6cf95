#include "datagram.h"

#include "file_descriptor.h"

#include <cstddef>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

namespace client {

bool sendDatagram(const QByteArray &address, const QByteArray &message)
{
    sockaddr_un target{};
    const auto length = static_cast<std::size_t>(address.size());
    if (address.isEmpty() || length >= sizeof target.sun_path)
        return false;
    target.sun_family = AF_UNIX;
    std::memcpy(target.sun_path, address.constData(), length);
    if (target.sun_path[0] == '@')
        target.sun_path[0] = '\0';
    const handset_state::FileDescriptor socket(
        ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    return socket &&
           ::sendto(socket.get(), message.constData(), static_cast<std::size_t>(message.size()),
                    MSG_NOSIGNAL, reinterpret_cast<const sockaddr *>(&target), size) >= 0;
}

} // namespace client
