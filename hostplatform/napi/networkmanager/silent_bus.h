// A bus that accepts connections and then says nothing, found out before it is used.
#pragma once

#include <QByteArray>

/// Greets the first bus of a list of D-Bus addresses that accepts a connection, on a connection of
/// its own that is closed again. Needed because opening a connection with QtDBus has no time limit.
/// @param limitMs  how long to wait for room for the connection and for the answer, in milliseconds
/// @return true when somebody listens and nobody has answered in that time; false when there was an
///         answer, nobody listens, or the list has no address of a Unix socket
bool isBusSilent(const QByteArray &addresses, int limitMs);

/// @return the addresses of the system bus.
QByteArray systemBusAddresses();
