// One settings file: its path, its entries in memory, and the way to the disk and back.
#pragma once

#include "settings_format.h"

#include <QByteArray>
#include <QString>

class SettingsFile {
public:
    /// Largest file that is read and written, in bytes: some ten times what the mapping of a
    /// thousand profiles takes.
    static constexpr qsizetype maximumSize = 4 * 1024 * 1024;

    /// Reads the file. What cannot be read is reported on stderr and left out.
    explicit SettingsFile(const QString &path);

    /// Replaces the file by the groups: written aside under a name of its own, mode 0600, and
    /// renamed. No fsync: the writers of these files rebuild them at each start, so they need to be
    /// whole, not to survive a power cut. When the file held something that could not be read, it
    /// is kept beside the new one with ".damaged" added to its name.
    /// @return false when that failed, which is reported on stderr; the file is then as it was.
    bool flush();

    SettingsGroups groups;

private:
    void read();
    bool keepDamagedFile();
    void report(const char *action, const char *reason) const;

    QByteArray m_path; ///< as the file system wants it
    bool m_damaged = false;
};
