// A system bus that takes connections and says nothing.
#pragma once

#include <QByteArray>
#include <chrono>

namespace client {

/// Whether the system bus is there and does not answer within a time: the D-Bus library would wait
/// for its first word for ever. Of an address that is no socket in the file system nothing is
/// known, so that is not silent, and nor is one where nobody listens.
/// @param address  as DBUS_SYSTEM_BUS_ADDRESS has it; empty: the usual one
bool isSilentBus(const QByteArray &address, std::chrono::milliseconds patience);

} // namespace client
