#include "settings_file.h"

#include "foreign_text.h"
#include "private_storage.h"

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using handset_state::FileDescriptor;

namespace {

/// @return false with errno set.
bool readAll(int descriptor, QByteArray &bytes)
{
    qsizetype filled = 0;
    while (filled < bytes.size()) {
        const ssize_t got = ::read(descriptor, bytes.data() + filled,
                                   static_cast<std::size_t>(bytes.size() - filled));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return false;
        if (got == 0)
            break;
        filled += got;
    }
    bytes.truncate(filled);
    return true;
}

/// Gives a new file its name. An old file of that name first changes places with it, because ext4
/// writes a file that is renamed over another to the disk at once, which no one here waits for.
/// @return false with errno set; both names are then as they were.
bool moveIntoPlace(const char *newFile, const char *path)
{
    struct stat old = {};
    if (::lstat(path, &old) == 0 && S_ISREG(old.st_mode) &&
        ::renameat2(AT_FDCWD, newFile, AT_FDCWD, path, RENAME_EXCHANGE) == 0) {
        ::unlink(newFile);
        return true;
    }
    return ::rename(newFile, path) == 0;
}

} // namespace

SettingsFile::SettingsFile(const QString &path) : m_path(QFile::encodeName(path))
{
    read();
}

void SettingsFile::report(const char *action, const char *reason) const
{
    std::fprintf(stderr, "kubappbase: %s: cannot %s the settings file: %s\n",
                 foreign_text::printable(m_path.toStdString()).c_str(), action, reason);
}

void SettingsFile::read()
{
    handset_state::Refusal refusal;
    const FileDescriptor file = handset_state::openFile(m_path.toStdString(), O_RDONLY, refusal);
    if (refusal.error == ENOENT)
        return;
    m_damaged = true;
    if (refusal)
        return report("read", refusal.reason.c_str());
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0)
        return report("read", std::strerror(errno));
    if (status.st_size > maximumSize)
        return report("read", "it is larger than 4 MiB");

    QByteArray bytes(static_cast<qsizetype>(status.st_size), Qt::Uninitialized);
    if (!readAll(file.get(), bytes))
        return report("read", std::strerror(errno));
    ParsedSettings parsed = parseSettings(bytes);
    groups = std::move(parsed.groups);
    m_damaged = parsed.skippedLines > 0;
    if (m_damaged) {
        std::fprintf(stderr, "kubappbase: %s: skipped %d malformed lines, the first is line %d\n",
                     foreign_text::printable(m_path.toStdString()).c_str(), parsed.skippedLines,
                     parsed.firstSkippedLine);
    }
}

bool SettingsFile::keepDamagedFile()
{
    const QByteArray damagedPath = m_path + ".damaged";
    ::unlink(damagedPath.constData());
    // A second name instead of a rename: at no moment is there no file.
    return ::link(m_path.constData(), damagedPath.constData()) == 0 || errno == ENOENT;
}

bool SettingsFile::flush()
{
    const auto fail = [this](const char *reason) {
        report("write", reason);
        return false;
    };
    if (m_path.isEmpty() || m_path.contains('\0'))
        return fail("it has no usable name");
    const QByteArray bytes = formatSettings(groups);
    if (bytes.size() > maximumSize)
        return fail("it would be larger than 4 MiB");
    const std::string folder = QFileInfo(QFile::decodeName(m_path)).path().toStdString();
    if (const handset_state::Refusal refusal = handset_state::checkFolder(folder))
        return fail(refusal.text().c_str());

    // The name differs for each writer, so two of them never write into one file.
    QByteArray temporaryPath = m_path + ".XXXXXX";
    FileDescriptor file(::mkostemp(temporaryPath.data(), O_CLOEXEC)); // creates with mode 0600
    if (!file)
        return fail(std::strerror(errno));
    if (!file.writeAll(bytes) || !file.close() || (m_damaged && !keepDamagedFile()) ||
        !moveIntoPlace(temporaryPath.constData(), m_path.constData())) {
        const int reason = errno;
        ::unlink(temporaryPath.constData());
        return fail(std::strerror(reason));
    }
    m_damaged = false;
    return true;
}
