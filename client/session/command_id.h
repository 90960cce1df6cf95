// How the client numbers the commands of its messages.
#pragma once

#include <QString>
#include <cstddef>

namespace client {

/// The CmdID of the command of that number in its message, counted from 1.
QString commandId(std::size_t number);

} // namespace client
