#include "private_file.h"

#include "json_object.h"
#include "private_storage.h"

#include <QFile>
#include <QSaveFile>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

using handset_state::FileDescriptor;

namespace support {

namespace {

/// Makes a rename survive a power cut. Without that the old file may come back, whole.
void syncFolderOf(const std::string &path)
{
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    const FileDescriptor opened(
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_CLOEXEC));
    if (opened)
        ::fsync(opened.get());
}

QString systemReason(int errorNumber)
{
    return QString::fromLocal8Bit(std::strerror(errorNumber));
}

} // namespace

Expected<std::optional<QByteArray>, QString> PrivateFile::read() const
{
    handset_state::Refusal refusal;
    const FileDescriptor opened =
        handset_state::openFile(QFile::encodeName(m_path).toStdString(), O_RDONLY, refusal);
    if (refusal.error == ENOENT)
        return std::optional<QByteArray>();
    if (refusal)
        return Unexpected(QString::fromLocal8Bit(refusal.text().c_str()));
    QFile file;
    file.open(opened.get(), QIODevice::ReadOnly);
    QByteArray bytes = file.read(m_largestBytes + 1);
    if (file.error() != QFileDevice::NoError)
        return Unexpected(QStringLiteral("cannot read %1: %2").arg(m_path, file.errorString()));
    if (bytes.size() > m_largestBytes)
        return Unexpected(
            QStringLiteral("%1 is larger than %2 bytes").arg(m_path).arg(m_largestBytes));
    return std::optional(std::move(bytes));
}

Expected<std::optional<QJsonObject>, QString> PrivateFile::readObject() const
{
    const auto bytes = read();
    if (!bytes)
        return Unexpected(bytes.error());
    if (!*bytes)
        return std::optional<QJsonObject>();
    auto object = parseJsonObject(**bytes);
    if (!object)
        return Unexpected(QStringLiteral("%1: %2").arg(m_path, object.error()));
    return std::optional(*std::move(object));
}

Expected<void, QString> PrivateFile::replace(const QByteArray &bytes) const
{
    const auto fail = [this](const QString &reason) {
        return Unexpected(QStringLiteral("cannot write %1: %2").arg(m_path, reason));
    };
    if (bytes.size() > m_largestBytes)
        return fail(QStringLiteral("it would be larger than %1 bytes").arg(m_largestBytes));
    const std::string path = QFile::encodeName(m_path).toStdString();
    const std::string aside = path + ".new";
    ::unlink(aside.c_str()); // what a process that was killed has left
    handset_state::Refusal refusal;
    FileDescriptor file = handset_state::openFile(aside, O_WRONLY | O_CREAT | O_EXCL, refusal);
    if (refusal)
        return fail(QString::fromLocal8Bit(refusal.reason.c_str()));
    // It is on the disk before it takes the name.
    const bool isOnDisk = file.writeAll(bytes) && ::fsync(file.get()) == 0 && file.close();
    if (!isOnDisk || std::rename(aside.c_str(), path.c_str()) != 0) {
        const int reason = errno;
        ::unlink(aside.c_str());
        return fail(systemReason(reason));
    }
    syncFolderOf(path);
    return {};
}

Expected<void, QString> replacePrivately(const QString &path, const QByteArray &bytes)
{
    QSaveFile file(path);
    // What is left in a buffer reaches the disk in commit(), which does not tell when it does not.
    // Of a write that takes a part only the reason comes with the next one.
    bool isWritten = file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
                     file.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
    for (qsizetype at = 0; isWritten && at < bytes.size();) {
        const qint64 count = file.write(bytes.constData() + at, bytes.size() - at);
        isWritten = count > 0;
        at += count;
    }
    if (isWritten && file.commit())
        return {};
    return Unexpected(QStringLiteral("cannot write %1: %2").arg(path, file.errorString()));
}

} // namespace support
