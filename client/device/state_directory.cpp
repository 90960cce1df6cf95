#include "state_directory.h"

#include "private_file.h"
#include "private_storage.h"
#include "state_location.h"
#include "xml_text.h"

#include <QFile>
#include <QUuid>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

constexpr char stateVariable[] = "KUB_STATE_DIR";
constexpr char clientFolderName[] = "/client";
constexpr char scratchPrefix[] = "scratch-";

bool isScratchFolder(const std::filesystem::path &folder)
{
    struct stat status = {};
    return folder.filename().native().starts_with(scratchPrefix) &&
           ::lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == ::geteuid() && (status.st_mode & 07777U) == S_IRWXU;
}

/// What an earlier process has left; this one has the lock, so that none of them goes on.
void removeScratchFolders(const std::string &clientFolder)
{
    std::error_code ignored;
    std::vector<std::filesystem::path> left;
    for (const auto &entry : std::filesystem::directory_iterator(clientFolder, ignored))
        if (isScratchFolder(entry.path()))
            left.push_back(entry.path());
    for (const std::filesystem::path &folder : left)
        std::filesystem::remove_all(folder, ignored);
}

} // namespace

QString StateDirectory::defaultPath()
{
    return QFile::decodeName(handset_state::location().c_str());
}

Expected<std::unique_ptr<StateDirectory>, QString> StateDirectory::open(const QString &path)
{
    const std::string state = handset_state::absolutePath(QFile::encodeName(path).toStdString());
    const QString root = QFile::decodeName(state.c_str());
    const std::string clientFolder = state + clientFolderName;
    handset_state::Refusal refusal = handset_state::makeStateDirectory(state);
    // The settings class makes the second one itself, but cannot refuse to name it.
    for (const std::string &folder : {clientFolder, state + "/settings"})
        if (!refusal)
            refusal = handset_state::makeFolder(folder);
    handset_state::FileDescriptor lockFile;
    if (!refusal)
        lockFile = handset_state::openFile(clientFolder + "/lock", O_RDWR | O_CREAT, refusal);
    if (refusal)
        return Unexpected(QString::fromLocal8Bit(refusal.text().c_str()));
    const QString clientPath = QFile::decodeName(clientFolder.c_str());
    if (::flock(lockFile.get(), LOCK_EX | LOCK_NB) != 0)
        return Unexpected(
            errno == EWOULDBLOCK
                ? QStringLiteral("another DM client is using the state directory %1").arg(root)
                : QStringLiteral("cannot lock %1/lock: %2")
                      .arg(clientPath, QString::fromLocal8Bit(std::strerror(errno))));
    removeScratchFolders(clientFolder);
    qputenv(stateVariable, state.c_str());
    return std::unique_ptr<StateDirectory>(new StateDirectory(clientPath, std::move(lockFile)));
}

bool StateDirectory::isInUse(const QString &path)
{
    const std::string state = handset_state::absolutePath(QFile::encodeName(path).toStdString());
    handset_state::Refusal refusal;
    const handset_state::FileDescriptor lockFile =
        handset_state::openFile(state + clientFolderName + "/lock", O_RDWR, refusal);
    return lockFile && ::flock(lockFile.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

StateDirectory::StateDirectory(QString clientPath, handset_state::FileDescriptor lockFile)
    : m_clientPath(std::move(clientPath)), m_lockFile(std::move(lockFile))
{
}

QString StateDirectory::path() const
{
    return m_clientPath.chopped(static_cast<qsizetype>(sizeof clientFolderName) - 1);
}

QString StateDirectory::clientFile(const QString &name) const
{
    return m_clientPath + u'/' + name;
}

Expected<QString, QString> StateDirectory::makeScratchFolder() const
{
    QByteArray path =
        QFile::encodeName(clientFile(QLatin1String(scratchPrefix) + QStringLiteral("XXXXXX")));
    if (!::mkdtemp(path.data()))
        return Unexpected(QStringLiteral("cannot make a folder in %1: %2")
                              .arg(m_clientPath, QString::fromLocal8Bit(std::strerror(errno))));
    return QFile::decodeName(path);
}

void StateDirectory::removeScratchFolder(const QString &folder)
{
    const std::filesystem::path path = QFile::encodeName(folder).toStdString();
    std::error_code ignored;
    if (isScratchFolder(path))
        std::filesystem::remove_all(path, ignored);
}

namespace {

constexpr qsizetype longestDeviceId = 255;

/// The device identifier in a file, with or without a line break after it. It goes
/// into every message, so it has to be a line of text that each encoding carries.
/// @return none when the file holds anything else
std::optional<QByteArray> deviceIdIn(QByteArray content)
{
    if (content.endsWith('\n'))
        content.chop(content.endsWith("\r\n") ? 2 : 1);
    const auto text = syncml::xmlTextFromUtf8(content);
    const QByteArray id = content.trimmed();
    if (!text || !syncml::isXmlLine(*text) || id.isEmpty() || id.size() > longestDeviceId)
        return std::nullopt;
    return id;
}

} // namespace

Expected<QByteArray, QString> StateDirectory::deviceId() const
{
    constexpr qsizetype lineBreak = 2;
    const support::PrivateFile file(clientFile(QStringLiteral("device-id")),
                                    longestDeviceId + lineBreak);
    const auto stored = file.read();
    if (!stored)
        return Unexpected(stored.error());
    if (*stored) {
        if (auto id = deviceIdIn(**stored))
            return *std::move(id);
        return Unexpected(
            QStringLiteral("%1 does not hold a device identifier, one line of 1 to %2 bytes "
                           "of UTF-8 without control characters")
                .arg(file.path())
                .arg(longestDeviceId));
    }
    const QByteArray id = "urn:uuid:" + QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
    if (const auto written = file.replace(id + '\n'); !written)
        return Unexpected(written.error());
    return id;
}

} // namespace client
