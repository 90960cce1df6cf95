// Messages to a socket of the system.
#pragma once

#include <QByteArray>

namespace client {

/// Sends one message to a local datagram socket, without waiting.
/// @param address  a path, or an abstract name after an @
/// @return whether it was taken
bool sendDatagram(const QByteArray &address, const QByteArray &message);

} // namespace client
