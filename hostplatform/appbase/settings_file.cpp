#include "settings_file.h"

#include "private_storage.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using handset_state::FileDescriptor;

/// Which file it is and which contents it has, as far as the file system tells.
struct SettingsFileState {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified = {};
    timespec changed = {};

    bool operator==(const SettingsFileState &other) const
    {
        return device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec &&
               changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
    }
};

struct SettingsOnDisk {
    SettingsGroups groups;
    SettingsFileState state;
    qsizetype entriesSize = 0; ///< bytes of the file without the changes at its end
    int version = 0;           ///< counts the changes that were added
};

namespace {

/// Files by path, which nobody reads again as long as they are as this process left them.
struct KnownFiles {
    std::mutex mutex;
    QHash<QByteArray, std::shared_ptr<SettingsOnDisk>> files;
};

KnownFiles &knownFiles()
{
    static KnownFiles known;
    return known;
}

/// @return false with errno set.
bool readState(const FileDescriptor &file, SettingsFileState &state)
{
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0)
        return false;
    state = {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
    return true;
}

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

SettingsFile::SettingsFile(const QString &path) : m_name(path), m_path(QFile::encodeName(path))
{
    read();
}

void SettingsFile::noteFault(const std::string &fault)
{
    m_faults.push_back(m_path.toStdString() + ": " + fault);
}

void SettingsFile::noteFault(const char *action, const char *reason)
{
    noteFault(std::string("cannot ") + action + " the settings file: " + reason);
}

// ---- Entries ------------------------------------------------------------------------------------

namespace {

/// The text with characters of its own. Those of a literal are in the caller's library, which may
/// be unloaded while what is known of the file is kept.
QString ownText(const QString &text)
{
    const bool hasOwn = text.isNull() || text.capacity() > 0;
    return hasOwn ? text : QString(text.constData(), text.size());
}

} // namespace

void SettingsFile::set(const QString &group, const QString &key, const QString &value)
{
    auto entries = m_groups.find(group);
    if (entries == m_groups.end())
        entries = m_groups.insert(ownText(group), {});
    const auto entry = entries->constFind(key);
    if (entry != entries->cend() && *entry == value)
        return;
    entries->insert(ownText(key), ownText(value));
    note({group, key, value});
}

bool SettingsFile::remove(const QString &group, const QString &key)
{
    const auto entries = m_groups.find(group);
    if (entries == m_groups.end() || entries->remove(key) == 0)
        return false;
    note({group, key, std::nullopt});
    return true;
}

void SettingsFile::note(const SettingsChange &change)
{
    constexpr qsizetype mostChanges = 1000; // of one flush; more are not worth their memory
    if (m_changes.size() == mostChanges)
        m_onDisk.reset();
    if (m_onDisk)
        m_changes += change;
}

// ---- Reading ------------------------------------------------------------------------------------

void SettingsFile::know(const SettingsOnDisk &onDisk)
{
    m_onDisk = std::make_shared<SettingsOnDisk>(onDisk);
    m_version = onDisk.version;
    m_changes.clear();
    constexpr qsizetype mostUnused = 8; // some more than one handset has
    auto &files = knownFiles().files;
    if (files.size() >= mostUnused)
        files.removeIf([](const auto &file) { return file.value().use_count() == 1; });
    files.insert(m_path, m_onDisk);
}

void SettingsFile::read()
{
    const std::lock_guard lock(knownFiles().mutex);
    handset_state::Refusal refusal;
    const FileDescriptor file = handset_state::openFile(m_path.toStdString(), O_RDONLY, refusal);
    if (refusal.error == ENOENT)
        return;
    m_damaged = true;
    if (refusal)
        return noteFault("read", refusal.reason.c_str());

    SettingsFileState state;
    QByteArray bytes;
    ParsedSettings parsed;
    // Another process may be adding changes at this moment, which takes it no time.
    constexpr int mostAttempts = 10;
    constexpr useconds_t microsecondsBetween = 1000;
    for (int attempt = 1; attempt <= mostAttempts; ++attempt) {
        if (!readState(file, state))
            return noteFault("read", std::strerror(errno));
        if (const auto known = knownFiles().files.value(m_path); known && known->state == state) {
            m_damaged = false;
            m_groups = known->groups;
            m_onDisk = known;
            m_version = known->version;
            return;
        }
        if (state.size > maximumSize)
            return noteFault("read", "it is larger than 4 MiB");
        bytes.resize(static_cast<qsizetype>(state.size));
        if (::lseek(file.get(), 0, SEEK_SET) != 0 || !readAll(file.get(), bytes))
            return noteFault("read", std::strerror(errno));
        parsed = parseSettings(bytes);
        if (!parsed.isCutOff)
            break;
        ::usleep(microsecondsBetween);
    }
    m_groups = std::move(parsed.groups);
    m_damaged = parsed.skippedLines > 0 || parsed.isCutOff;
    if (parsed.isCutOff)
        noteFault("read", "the last changes are not all there, and left out");
    if (parsed.skippedLines > 0)
        noteFault("skipped " + std::to_string(parsed.skippedLines) +
                  " malformed lines, the first is line " + std::to_string(parsed.firstSkippedLine));
    if (!m_damaged && (bytes.isEmpty() || bytes.endsWith('\n')))
        know({m_groups, state, parsed.hasChanges ? 0 : bytes.size()});
}

// ---- Writing ------------------------------------------------------------------------------------

bool SettingsFile::flush()
{
    const std::lock_guard lock(knownFiles().mutex);
    return append() || replace();
}

/// Adds the changes at the end of a file that is as this process left it. A reader sees none of
/// them or all.
bool SettingsFile::append()
{
    constexpr qsizetype leastRoom = 4096;
    if (!m_onDisk || m_onDisk->version != m_version)
        return false;
    handset_state::Refusal refusal;
    FileDescriptor file =
        handset_state::openFile(m_path.toStdString(), O_WRONLY | O_APPEND, refusal);
    SettingsFileState state;
    // Who holds the lock is about to change the file.
    if (!file || ::flock(file.get(), LOCK_EX | LOCK_NB) != 0 || !readState(file, state) ||
        !(state == m_onDisk->state))
        return false;
    if (m_changes.isEmpty())
        return true;
    const QByteArray bytes = formatChanges(m_changes);
    const qsizetype size = static_cast<qsizetype>(state.size) + bytes.size();
    if (size > maximumSize || size > leastRoom + 2 * m_onDisk->entriesSize)
        return false;
    if (!file.writeAll(bytes)) {
        // Readers leave out what was written of them, but the next changes can only follow whole
        // ones.
        if (::ftruncate(file.get(), state.size) != 0 || !readState(file, m_onDisk->state))
            m_onDisk.reset();
        return false;
    }
    for (const SettingsChange &change : m_changes)
        applyChange(change, m_onDisk->groups);
    m_changes.clear();
    m_version = ++m_onDisk->version;
    if (!readState(file, m_onDisk->state))
        m_onDisk.reset();
    return true;
}

bool SettingsFile::keepDamagedFile()
{
    const QByteArray damagedPath = m_path + ".damaged";
    ::unlink(damagedPath.constData());
    // A second name instead of a rename: at no moment is there no file.
    return ::link(m_path.constData(), damagedPath.constData()) == 0 || errno == ENOENT;
}

bool SettingsFile::replace()
{
    const auto fail = [this](const char *reason) {
        noteFault("write", reason);
        return false;
    };
    if (m_path.isEmpty() || m_path.contains('\0'))
        return fail("it has no usable name");
    const QByteArray bytes = formatSettings(m_groups);
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
    // Closing one of two can still fail, and the other says what the file is under its new name.
    const FileDescriptor written(::fcntl(file.get(), F_DUPFD_CLOEXEC, 0));
    if (!written || !file.writeAll(bytes) || !file.close() || (m_damaged && !keepDamagedFile()) ||
        !moveIntoPlace(temporaryPath.constData(), m_path.constData())) {
        const int reason = errno;
        ::unlink(temporaryPath.constData());
        return fail(std::strerror(reason));
    }
    m_damaged = false;
    m_changes.clear();
    if (SettingsFileState state; readState(written, state))
        know({m_groups, state, bytes.size()});
    return true;
}
