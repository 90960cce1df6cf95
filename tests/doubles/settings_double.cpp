#include "settings_double.h"

#include "handset_doubles.h"
#include "setup_set_manager.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <unistd.h>

/// What one manager has in memory. A flush carries only the changes over, so that a test with
/// thousands of entries stays quick.
class SettingsFile {
public:
    struct Change {
        QString group;
        QString key;
        std::optional<QString> value; ///< none: the entry is removed
    };

    std::string path;
    doubles::SettingsGroups memory;
    std::vector<Change> unflushed;

    void Apply(const Change &change)
    {
        ApplyTo(memory, change);
        unflushed.push_back(change);
    }

    static void ApplyTo(doubles::SettingsGroups &groups, const Change &change)
    {
        if (change.value)
            groups[change.group][change.key] = *change.value;
        else
            groups[change.group].remove(change.key);
    }
};

namespace doubles {

namespace {

Entries ToEntries(const SettingsGroups &groups, const std::string &group)
{
    Entries entries;
    const QMap<QString, QString> found = groups.value(QString::fromStdString(group));
    for (auto it = found.begin(); it != found.end(); ++it)
        entries[it.key().toStdString()] = it.value().toStdString();
    return entries;
}

std::string Quoted(const QString &text)
{
    return text.isNull() ? "null" : "\"" + text.toStdString() + "\"";
}

/// The two mapping files have short names in the journal's calls on an open manager.
std::string FileName(const std::string &path)
{
    if (path == NAPDEF_FILE)
        return "napdef";
    return path == PROXY_FILE ? "proxy" : path;
}

/// Journals a call; tells how it ends unless it is carried out.
std::optional<Fault> Journal(const std::string &call, const std::string &arguments)
{
    Settings(); // a call outside a test ends the program
    HandsetDoubles &handset = *HandsetDoubles::Current();
    handset.journal.Add(call + "(" + arguments + ")");
    return handset.faults.Next(call);
}

std::optional<Fault> Journal(const std::string &call, const SettingsFile *file,
                             const std::vector<QString> &texts, bool flag = false)
{
    std::string arguments = FileName(file->path);
    for (const QString &text : texts)
        arguments += ", " + Quoted(text);
    return Journal(call, arguments + (flag ? ", true" : ""));
}

bool Succeeds(const Fault &fault)
{
    return fault.kind == FaultKind::SucceedsUntouched;
}

} // namespace

void SettingsDouble::Preload(const std::string &path, const std::string &group,
                             const std::string &key, const std::string &value)
{
    disk[path][QString::fromStdString(group)][QString::fromStdString(key)] =
        value.empty() ? QString::fromLatin1("") : QString::fromStdString(value);
}

Entries SettingsDouble::OnDisk(const std::string &path, const std::string &group) const
{
    const auto file = disk.find(path);
    return file == disk.end() ? Entries{} : ToEntries(file->second, group);
}

Entries SettingsDouble::InMemory(const std::string &path, const std::string &group) const
{
    if (OpenManagers(path) != 1)
        throw std::logic_error(std::to_string(OpenManagers(path)) + " managers open on " + path);
    const auto file = std::find_if(open.begin(), open.end(),
                                   [&path](const OpenFile &o) { return o.path == path; });
    return ToEntries(*file->memory, group);
}

int SettingsDouble::OpenManagers(const std::string &path) const
{
    return static_cast<int>(std::count_if(open.begin(), open.end(),
                                          [&path](const OpenFile &o) { return o.path == path; }));
}

} // namespace doubles

using doubles::Journal;
using doubles::Settings;

SETUP_SET_Manager::SETUP_SET_Manager(const QString &path, bool flag) : m_file(new SettingsFile)
{
    m_file->path = path.toStdString();
    const auto fault = Journal("SETUP_SET_Manager", doubles::Quoted(path) + (flag ? ", true" : ""));
    const auto file = Settings().disk.find(m_file->path);
    if (!fault && file != Settings().disk.end()) // an unreadable file counts as an empty one
        m_file->memory = file->second;
    Settings().open.push_back({this, m_file->path, &m_file->memory});
}

SETUP_SET_Manager::~SETUP_SET_Manager()
{
    doubles::HandsetDoubles::Current()->journal.Add("~SETUP_SET_Manager(" +
                                                    doubles::FileName(m_file->path) + ")");
    auto &open = Settings().open;
    open.erase(std::find_if(open.begin(), open.end(),
                            [this](const auto &file) { return file.manager == this; }));
    delete m_file;
}

bool SETUP_SET_Manager::flush()
{
    if (const auto fault = Journal("flush", m_file, {}))
        return doubles::Succeeds(*fault);
    doubles::SettingsGroups &file = Settings().disk[m_file->path];
    for (const SettingsFile::Change &change : m_file->unflushed)
        SettingsFile::ApplyTo(file, change);
    m_file->unflushed.clear();
    return true;
}

QMap<QString, QString> SETUP_SET_Manager::getEntryKeyList(const QString &group) const
{
    if (Journal("getEntryKeyList", m_file, {group}))
        return {};
    return m_file->memory.value(group);
}

bool SETUP_SET_Manager::getSettingInfo(const QString &group, const QString &key, QString &value,
                                       const QString &defaultText, bool flag) const
{
    std::vector<QString> texts{group, key};
    if (!defaultText.isNull())
        texts.push_back(defaultText);
    if (const auto fault = Journal("getSettingInfo", m_file, texts, flag)) {
        if (!doubles::Succeeds(*fault))
            value = defaultText;
        return doubles::Succeeds(*fault);
    }
    const QMap<QString, QString> entries = m_file->memory.value(group);
    const auto entry = entries.find(key);
    value = entry == entries.end() ? defaultText : *entry;
    return entry != entries.end();
}

bool SETUP_SET_Manager::setSettingInfo(const QString &group, const QString &key,
                                       const QString &value, bool flag)
{
    if (const auto fault = Journal("setSettingInfo", m_file, {group, key, value}, flag))
        return doubles::Succeeds(*fault);
    m_file->Apply({group, key, value.isNull() ? QString::fromLatin1("") : value});
    return true;
}

bool SETUP_SET_Manager::removeEntry(const QString &group, const QString &key)
{
    if (const auto fault = Journal("removeEntry", m_file, {group, key}))
        return doubles::Succeeds(*fault);
    if (!m_file->memory.value(group).contains(key))
        return false;
    m_file->Apply({group, key, std::nullopt});
    return true;
}

QString getSettingDirectory()
{
    if (Journal("getSettingDirectory", ""))
        return QString();
    return QString::fromStdString(Settings().directory);
}

// The linker leads every call of unlink in the program here (-Wl,--wrap=unlink).
extern "C" int __real_unlink(const char *path);
extern "C" int __wrap_unlink(const char *path);

int __wrap_unlink(const char *path)
{
    const doubles::HandsetDoubles *const handset = doubles::HandsetDoubles::Current();
    if (!handset || std::string(path).rfind(handset->settings.directory, 0) != 0)
        return __real_unlink(path);
    if (const auto fault = Journal("unlink", "\"" + std::string(path) + "\""))
        return doubles::Succeeds(*fault) ? 0 : -1;
    doubles::SettingsDouble &settings = Settings();
    if (!settings.HasFile(path)) {
        errno = ENOENT;
        return -1;
    }
    if (!settings.unlinkKeepsFiles)
        settings.disk.erase(path);
    return 0;
}
