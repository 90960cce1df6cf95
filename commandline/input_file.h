// Files that a command line names.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QString>

namespace commandline {

/// Reads a whole file; "-" is standard input. What is larger is not read to its end.
/// @return its bytes, or what is wrong, which names the file
support::Expected<QByteArray, QString> readInput(const QString &fileName, qint64 largestSize);

} // namespace commandline
