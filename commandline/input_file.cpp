#include "input_file.h"

#include <QFile>
#include <unistd.h>

namespace commandline {

std::optional<QByteArray> readInput(const QString &fileName, qint64 largestSize, QString &error)
{
    QFile file(fileName);
    const bool isOpen = fileName == u"-" ? file.open(STDIN_FILENO, QIODevice::ReadOnly)
                                         : file.open(QIODevice::ReadOnly);
    const QByteArray bytes = isOpen ? file.read(largestSize + 1) : QByteArray();
    if (!isOpen || file.error() != QFileDevice::NoError)
        error = QStringLiteral("cannot read %1: %2").arg(fileName, file.errorString());
    else if (bytes.size() > largestSize)
        error = QStringLiteral("%1: it is larger than %2 bytes").arg(fileName).arg(largestSize);
    else
        return bytes;
    return std::nullopt;
}

} // namespace commandline
