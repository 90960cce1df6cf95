// One settings file: its path, its entries in memory, and the way to the disk and back.
#pragma once

#include "settings_format.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// What a file held when it was last read or written, for all who use it in this process.
struct SettingsOnDisk;

class SettingsFile {
public:
    /// Largest file that is read and written, in bytes: some ten times what the mapping of a
    /// thousand profiles takes.
    static constexpr qsizetype maximumSize = 4 * 1024 * 1024;

    /// Reads the file. What cannot be read is left out, with a fault.
    explicit SettingsFile(const QString &path);

    const QString &name() const { return m_name; }
    bool hasFaults() const { return !m_faults.empty(); }
    /// @return what went wrong since the last call, in sentences that name the file; empty when
    ///         nothing did.
    std::vector<std::string> takeFaults() { return std::exchange(m_faults, {}); }

    const SettingsGroups &groups() const { return m_groups; }
    void set(const QString &group, const QString &key, const QString &value);
    /// @return false when there is no such entry.
    bool remove(const QString &group, const QString &key);

    /// Makes the file hold the groups. As long as nobody else has changed it, the changes since the
    /// last flush are added at its end. Else, and when it would come to more than twice the bytes
    /// of its entries, it is replaced: written aside under a name of its own, mode 0600, and
    /// renamed. No fsync: the writers of these files rebuild them at each start, so they need to be
    /// whole, not to survive a power cut. When the file held something that could not be read, it
    /// is kept beside the new one with ".damaged" added to its name.
    /// @return false when that failed, which is a fault; the file is then as it was.
    bool flush();

private:
    void read();
    bool append();
    bool replace();
    void note(const SettingsChange &change);
    void know(const SettingsOnDisk &onDisk);
    bool keepDamagedFile();
    void noteFault(const std::string &fault);
    void noteFault(const char *action, const char *reason);

    QString m_name;    ///< the path that was asked for
    QByteArray m_path; ///< as the file system wants it
    SettingsGroups m_groups;
    bool m_damaged = false;
    std::vector<std::string> m_faults;
    std::shared_ptr<SettingsOnDisk> m_onDisk; ///< null: the file has to be replaced
    int m_version = 0;               ///< of m_onDisk, which the groups were when last flushed
    QList<SettingsChange> m_changes; ///< since then
};
