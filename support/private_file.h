// Small files of a program that nobody else may read and that must not be lost.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace support {

/// One such file. What it is limited to in reading it is limited to in writing, so that whatever
/// was written can be read again.
class PrivateFile {
public:
    /// @param path  in a folder of the state directory, whose lock keeps other writers away
    PrivateFile(QString path, qsizetype largestBytes)
        : m_path(std::move(path)), m_largestBytes(largestBytes)
    {
    }

    const QString &path() const { return m_path; }

    /// The whole file; none when it is missing. One that is too large, a symbolic link, or somebody
    /// else's fails, with a sentence that names the file and the reason.
    Expected<std::optional<QByteArray>, QString> read() const;
    /// The file as one JSON object. The error has the place of what is not JSON.
    Expected<std::optional<QJsonObject>, QString> readObject() const;

    /// Replaces the file in one step: written aside with mode 0600, on the disk before it takes the
    /// name. A power cut leaves the old file or the new one. A failure, such as a full disk, leaves
    /// the old file; the error is a sentence that names the file and the reason.
    Expected<void, QString> replace(const QByteArray &bytes) const;

private:
    QString m_path;
    qsizetype m_largestBytes;
};

/// Replaces a file outside of a state directory in one step, with mode 0600. A failure, such as a
/// full disk, leaves it as it was; the error is a sentence that names the file and the reason.
Expected<void, QString> replacePrivately(const QString &path, const QByteArray &bytes);

} // namespace support
