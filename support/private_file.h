// Small files of a program that nobody else may read and that must not be lost.
#pragma once

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

    enum class Reading { Done, Missing, Failed };
    /// Reads the whole file. One that is too large, a symbolic link, or somebody else's fails.
    /// @param error  receives a sentence that names the file and the reason when it fails
    Reading read(QByteArray &bytes, QString &error) const;
    /// Reads the file as one JSON object.
    /// @param error  receives also the place of what is no JSON
    Reading readObject(QJsonObject &object, QString &error) const;

    /// Replaces the file in one step: written aside with mode 0600, on the disk before it takes the
    /// name. A power cut leaves the old file or the new one.
    /// @return false on failure, such as a full disk, which leaves the old file, with a sentence
    ///         that names the file and the reason in error
    bool replace(const QByteArray &bytes, QString &error) const;

private:
    QString m_path;
    qsizetype m_largestBytes;
};

} // namespace support
