#include "state_directory.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUuid>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace client {

namespace {

constexpr char stateVariable[] = "KUB_STATE_DIR";
constexpr auto ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

QString systemReason(int errorNumber)
{
    return QString::fromLocal8Bit(std::strerror(errorNumber));
}

/// Makes the directory and the missing ones above it.
bool makePrivateDirectory(const QString &path, QString &error)
{
    if (QDir(path).exists())
        return true;
    if (!makePrivateDirectory(QFileInfo(path).path(), error))
        return false;
    if (::mkdir(QFile::encodeName(path).constData(), S_IRWXU) == 0)
        return true;
    error =
        QStringLiteral("cannot create the state directory %1: %2").arg(path, systemReason(errno));
    return QDir(path).exists(); // another process may have been faster
}

} // namespace

QString StateDirectory::defaultPath()
{
    const QString chosen = qEnvironmentVariable(stateVariable);
    if (!chosen.isEmpty())
        return chosen;
    // The base directory rules ask for a relative path to be ignored.
    const QString stateHome = qEnvironmentVariable("XDG_STATE_HOME");
    const QString base = QDir::isAbsolutePath(stateHome)
                             ? stateHome
                             : QDir::homePath() + QStringLiteral("/.local/state");
    return base + QStringLiteral("/kub-dm");
}

std::unique_ptr<StateDirectory> StateDirectory::open(const QString &path, QString &error)
{
    const QString root = QDir(path).absolutePath();
    const QString clientPath = root + QStringLiteral("/client");
    if (!makePrivateDirectory(root, error) || !makePrivateDirectory(clientPath, error))
        return nullptr;
    const QString lockPath = clientPath + QStringLiteral("/lock");
    const int lockFile =
        ::open(QFile::encodeName(lockPath).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lockFile < 0) {
        error = QStringLiteral("cannot open %1: %2").arg(lockPath, systemReason(errno));
        return nullptr;
    }
    // Owns the descriptor from here on.
    std::unique_ptr<StateDirectory> directory(new StateDirectory(clientPath, lockFile));
    if (::flock(lockFile, LOCK_EX | LOCK_NB) != 0) {
        error = errno == EWOULDBLOCK
                    ? QStringLiteral("another DM client is using the state directory %1").arg(root)
                    : QStringLiteral("cannot lock %1: %2").arg(lockPath, systemReason(errno));
        return nullptr;
    }
    qputenv(stateVariable, QFile::encodeName(root));
    return directory;
}

StateDirectory::StateDirectory(QString clientPath, int lockFile)
    : m_clientPath(std::move(clientPath)), m_lockFile(lockFile)
{
}

StateDirectory::~StateDirectory()
{
    ::close(m_lockFile);
}

QString StateDirectory::clientFile(const QString &name) const
{
    return m_clientPath + u'/' + name;
}

QByteArray StateDirectory::deviceId(QString &error) const
{
    const QString path = clientFile(QStringLiteral("device-id"));
    QFile existing(path);
    if (existing.open(QIODevice::ReadOnly)) {
        constexpr qint64 longestId = 255;
        const QByteArray id = existing.read(longestId + 1).trimmed();
        if (!id.isEmpty() && id.size() <= longestId)
            return id;
        error = QStringLiteral("%1 holds no device identifier of 1 to %2 bytes")
                    .arg(path)
                    .arg(longestId);
        return {};
    }
    if (existing.exists()) {
        error = QStringLiteral("cannot read %1: %2").arg(path, existing.errorString());
        return {};
    }
    const QByteArray id = "urn:uuid:" + QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
    QSaveFile fresh(path);
    if (!fresh.open(QIODevice::WriteOnly) || !fresh.setPermissions(ownerOnly) ||
        fresh.write(id + '\n') < 0 || !fresh.commit()) {
        error = QStringLiteral("cannot write %1: %2").arg(path, fresh.errorString());
        return {};
    }
    return id;
}

} // namespace client
