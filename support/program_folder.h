// Where the program is that runs.
#pragma once

#include <QString>

namespace support {

/// The folder of the program's file, without a slash at its end; links on the way to it resolved.
/// Needs no QCoreApplication.
QString programFolder();

} // namespace support
