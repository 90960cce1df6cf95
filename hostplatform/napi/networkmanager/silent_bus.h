// A bus that accepts connections and then says nothing, found out before it is used.
#pragma once

#include <QByteArray>

/// Greets the first bus of a list of D-Bus addresses that accepts a connection, on a connection of
/// its own that is closed again. Needed because opening a connection with QtDBus has no time limit.
/// @param limitMs  how long to wait for the answer, in milliseconds
/// @return true when there was a connection and no answer; false when there was an answer, no
///         connection, or no address of a Unix socket in the list
bool isBusSilent(const QByteArray &addresses, int limitMs);

/// @return the addresses of the system bus.
QByteArray systemBusAddresses();
