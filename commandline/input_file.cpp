#include "input_file.h"

#include <QFile>
#include <unistd.h>

namespace commandline {

support::Expected<QByteArray, QString> readInput(const QString &fileName, qint64 largestSize)
{
    QFile file(fileName);
    const bool isOpen = fileName == u"-" ? file.open(STDIN_FILENO, QIODevice::ReadOnly)
                                         : file.open(QIODevice::ReadOnly);
    const QByteArray bytes = isOpen ? file.read(largestSize + 1) : QByteArray();
    if (!isOpen || file.error() != QFileDevice::NoError)
        return support::Unexpected(
            QStringLiteral("cannot read %1: %2").arg(fileName, file.errorString()));
    if (bytes.size() > largestSize)
        return support::Unexpected(
            QStringLiteral("%1: it is larger than %2 bytes").arg(fileName).arg(largestSize));
    return bytes;
}

} // namespace commandline
