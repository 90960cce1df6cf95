// The settings class on a disk in memory.
#pragma once

#include <QMap>
#include <QString>

#include <map>
#include <string>
#include <vector>

namespace doubles {

inline const std::string SETTINGS_DIRECTORY = "/settings/";
inline const std::string NAPDEF_FILE = SETTINGS_DIRECTORY + "kub_napdef_profilemapping.cfg";
inline const std::string PROXY_FILE = SETTINGS_DIRECTORY + "kub_proxy_profilemapping.cfg";

/// One settings file: entries by group and key.
using SettingsGroups = QMap<QString, QMap<QString, QString>>;
/// One group as UTF-8 texts, for comparisons.
using Entries = std::map<std::string, std::string>;

/// The disk behind SETUP_SET_Manager and unlink. A file is there from the first flush, or from
/// Preload, until it is unlinked.
struct SettingsDouble {
    std::string directory = SETTINGS_DIRECTORY; ///< answer of getSettingDirectory
    std::map<std::string, SettingsGroups> disk; ///< by path
    /// Unlinking leaves the file: the only way in which a mount finds entries in its own file.
    bool unlinkKeepsFiles = false;

    void Preload(const std::string &path, const std::string &group, const std::string &key,
                 const std::string &value);
    bool HasFile(const std::string &path) const { return disk.count(path) != 0; }
    /// What is on the disk.
    Entries OnDisk(const std::string &path, const std::string &group) const;
    /// What the open manager of the file has in memory; fails the test when not exactly one is
    /// open.
    Entries InMemory(const std::string &path, const std::string &group) const;
    /// Managers that are open on the file.
    int OpenManagers(const std::string &path) const;
    int OpenManagers() const { return static_cast<int>(open.size()); }

    struct OpenFile {
        const void *manager;
        std::string path;
        const SettingsGroups *memory;
    };
    std::vector<OpenFile> open; ///< kept by the doubles
};

/// The current test's settings; HandsetDoubles owns them.
SettingsDouble &Settings();

} // namespace doubles
