/// @file
/// The handset's settings files, libkubappbase.so.1.
#pragma once

#include <QMap>
#include <QString>

/// What the settings library exports.
#define KUBAPPBASE_API __attribute__((visibility("default")))

class SettingsFile;

/// One settings file: named groups of key = value texts. Changes are made in memory and reach the
/// file with flush. A null text stands for an entry that is absent, an empty one for an entry
/// without a value; the two are never mixed up. Any text is a possible group, key and value.
class KUBAPPBASE_API SETUP_SET_Manager {
public:
    /// Reads the file. A missing file is an empty one; a file that cannot be read or is larger
    /// than 4 MiB is reported on stderr and treated as empty; a malformed line is reported, too,
    /// and skipped. The flag is the library's own; pass false.
    SETUP_SET_Manager(const QString &path, bool);
    /// Drops what was not flushed.
    virtual ~SETUP_SET_Manager();
    /// Each object has changes of its own, which its flush writes.
    SETUP_SET_Manager(const SETUP_SET_Manager &) = delete;
    /// Each object has changes of its own, which its flush writes.
    SETUP_SET_Manager &operator=(const SETUP_SET_Manager &) = delete;

    /// Replaces the file by what is in memory; readers see the old file or the new one, never a
    /// part.
    /// @return false when the file cannot be written, or would be larger than 4 MiB: it is then as
    ///         it was, and memory keeps the changes.
    virtual bool flush();

    /// @return every entry of the group by key; an unknown group has none.
    QMap<QString, QString> getEntryKeyList(const QString &group) const;

    /// Reads one entry of a group by its key.
    /// @param group        name of the group
    /// @param key          name of the entry
    /// @param value        receives the entry, or defaultText when there is none
    /// @param defaultText  null to tell an absent entry from an empty one
    /// @return true when the entry exists. The flag is the library's own; pass false.
    bool getSettingInfo(const QString &group, const QString &key, QString &value,
                        const QString &defaultText, bool) const;

    /// Sets one entry in memory. A null value is stored as the empty one.
    /// @return true on success. The flag is the library's own; pass false.
    bool setSettingInfo(const QString &group, const QString &key, const QString &value, bool);

    /// Removes one entry of a group in memory. @return false when there is none.
    bool removeEntry(const QString &group, const QString &key);

private:
    SettingsFile *m_file;
};

/// @return the directory of the platform's settings files, ending in "/".
KUBAPPBASE_API QString getSettingDirectory();
