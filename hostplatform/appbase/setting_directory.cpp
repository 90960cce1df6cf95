#include "setup_set_manager.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include <QDir>
#include <QFile>

namespace {

/// The directory that holds the state of the simulated handset.
QString stateDirectory()
{
    const QString chosen = qEnvironmentVariable("KUB_STATE_DIR");
    if (!chosen.isEmpty())
        return QDir::cleanPath(QDir::current().absoluteFilePath(chosen));
    // The base directory rules ask for a relative path to be ignored.
    const QString stateHome = qEnvironmentVariable("XDG_STATE_HOME");
    if (QDir::isAbsolutePath(stateHome))
        return QDir::cleanPath(stateHome) + QStringLiteral("/kub-dm");
    return QDir::homePath() + QStringLiteral("/.local/state/kub-dm");
}

/// Creates the directory and the ones above it with mode 0700. @return false with errno set.
bool createPrivateDirectory(const QByteArray &path)
{
    for (qsizetype end = path.indexOf('/', 1); end >= 0; end = path.indexOf('/', end + 1)) {
        if (::mkdir(path.first(end).constData(), 0700) != 0 && errno != EEXIST)
            return false;
    }
    return true;
}

} // namespace

QString getSettingDirectory()
{
    static const QString directory = [] {
        const QString path = stateDirectory() + QStringLiteral("/settings/");
        const QByteArray encodedPath = QFile::encodeName(path);
        if (!createPrivateDirectory(encodedPath)) {
            std::fprintf(stderr, "kubappbase: %s: cannot create the settings directory: %s\n",
                         encodedPath.constData(), std::strerror(errno));
        }
        return path;
    }();
    return directory;
}
