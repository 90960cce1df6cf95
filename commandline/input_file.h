// Files that a command line names.
#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace commandline {

/// Reads a whole file; "-" is standard input. What is larger is not read to its end.
/// @return none with what is wrong in error, which names the file
std::optional<QByteArray> readInput(const QString &fileName, qint64 largestSize, QString &error);

} // namespace commandline
