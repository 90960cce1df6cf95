#include "counted_handset.h"

#include "aplog.h"
#include "heap_count.h"
#include "settings_format.h"
#include "setup_set_manager.h"

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_TOGGLE_COLLECT static_cast<void>(0)
#endif

#include <cerrno>
#include <cstring>
#include <unordered_map>
#include <vector>

FILE *libaplog_to_module_ptr = nullptr;

namespace costs {

Counts counts;

namespace {

struct Profile {
    unsigned int id;
    std::string name;
    NAP_PROFILE_S record;
};

struct State {
    std::vector<Profile> profiles; // a deleted one stays, without a name
    std::unordered_map<std::string, unsigned int> places;
    std::map<QString, SettingsGroups> disk;

    Profile *Find(const char *name)
    {
        const auto place = places.find(name);
        return place == places.end() ? nullptr : &profiles[place->second];
    }
};

State &TheState()
{
    static State state;
    return state;
}

/// Counts a call, and nothing while it is carried out.
class Call : Uncounted {
public:
    Call() { ++counts.calls; }
};

constexpr int NOT_FOUND = NAPI_ERROR_NOT_FOUND;

} // namespace

Counts CountsNow()
{
    Counts now = counts;
    now.allocations = AllocationsNow();
    return now;
}

namespace {
int uncountedDepth = 0;
bool countedBefore = false;
} // namespace

Uncounted::Uncounted()
{
    if (uncountedDepth++ > 0)
        return;
    countedBefore = counting;
    if (counting)
        CALLGRIND_TOGGLE_COLLECT;
    counting = false;
}

Uncounted::~Uncounted()
{
    if (--uncountedDepth > 0)
        return;
    counting = countedBefore;
    if (counting)
        CALLGRIND_TOGGLE_COLLECT;
}

void ForgetEverything()
{
    TheState() = State();
}

void Store(const std::string &name, const NAP_PROFILE_S &record)
{
    State &state = TheState();
    const auto place = static_cast<unsigned int>(state.profiles.size());
    state.places[name] = place;
    state.profiles.push_back({place + 1, name, record});
}

} // namespace costs

using costs::Call;
using costs::counts;
using costs::NOT_FOUND;
using costs::TheState;

// ---- The profile service ------------------------------------------------------------------------

int NAPI_ListAllProfile(char *names, unsigned int *count)
{
    const Call call;
    unsigned int filled = 0;
    for (const costs::Profile &profile : TheState().profiles) {
        if (profile.name.empty())
            continue;
        if (names && filled < *count)
            std::strcpy(names + std::size_t{filled} * NAPI_NAME_SIZE, profile.name.c_str());
        ++filled;
    }
    *count = filled;
    return 0;
}

int NAPI_ReadProfile(const char *name, NAP_PROFILE_S *record, int, int)
{
    const Call call;
    const costs::Profile *const profile = TheState().Find(name);
    if (!profile)
        return NOT_FOUND;
    *record = profile->record;
    return 0;
}

int NAPI_ModifyProfile(const char *name, const NAP_PROFILE_S *record, int, int)
{
    const Call call;
    costs::Profile *const profile = TheState().Find(name);
    if (!profile)
        return NOT_FOUND;
    profile->record = *record;
    counts.bytesWritten += sizeof *record;
    return 0;
}

int NAPI_CreateProfile(const char *name, const NAP_PROFILE_S *record, int, int)
{
    const Call call;
    costs::Store(name, *record);
    counts.bytesWritten += sizeof *record;
    return 0;
}

int NAPI_DeleteProfile(const char *name)
{
    const Call call;
    costs::Profile *const profile = TheState().Find(name);
    if (!profile)
        return NOT_FOUND;
    TheState().places.erase(name);
    profile->name.clear();
    return 0;
}

int NAPI_GetProfileIDByName(const char *name, unsigned int *id)
{
    const Call call;
    const costs::Profile *const profile = TheState().Find(name);
    if (!profile)
        return NOT_FOUND;
    *id = profile->id;
    return 0;
}

int NAPI_GetProfileNameByID(unsigned int id, char *name)
{
    const Call call;
    const auto &profiles = TheState().profiles;
    if (id == 0 || id > profiles.size() || profiles[id - 1].name.empty())
        return NOT_FOUND;
    std::strcpy(name, profiles[id - 1].name.c_str());
    return 0;
}

int NAPI_GetMaxProfiles(void)
{
    const Call call;
    return 1000000;
}

int NAPI_IsProfileValid(const char *name)
{
    const Call call;
    return TheState().Find(name) ? 0 : NOT_FOUND;
}

// ---- Settings files -----------------------------------------------------------------------------

class SettingsFile {
public:
    QString path;
    SettingsGroups groups;
};

SETUP_SET_Manager::SETUP_SET_Manager(const QString &path, bool)
{
    const Call call;
    m_file = new SettingsFile{path, TheState().disk[path]};
}

SETUP_SET_Manager::~SETUP_SET_Manager()
{
    const costs::Uncounted uncounted;
    delete m_file;
}

bool SETUP_SET_Manager::flush()
{
    const Call call;
    ++counts.flushes;
    counts.bytesWritten += static_cast<std::uint64_t>(formatSettings(m_file->groups).size());
    TheState().disk[m_file->path] = m_file->groups;
    return true;
}

QMap<QString, QString> SETUP_SET_Manager::getEntryKeyList(const QString &group) const
{
    const Call call;
    return m_file->groups.value(group);
}

bool SETUP_SET_Manager::getSettingInfo(const QString &group, const QString &key, QString &value,
                                       const QString &defaultText, bool) const
{
    const Call call;
    value = m_file->groups.value(group).value(key, defaultText);
    return !value.isNull();
}

bool SETUP_SET_Manager::setSettingInfo(const QString &group, const QString &key,
                                       const QString &value, bool)
{
    const Call call;
    m_file->groups[group][key] = value;
    return true;
}

bool SETUP_SET_Manager::removeEntry(const QString &group, const QString &key)
{
    const Call call;
    return m_file->groups[group].remove(key) > 0;
}

QString getSettingDirectory()
{
    const Call call;
    return QStringLiteral("/settings/");
}

// The linker leads every unlink of the program here (-Wl,--wrap=unlink).
extern "C" int __wrap_unlink(const char *path);

int __wrap_unlink(const char *path)
{
    const Call call;
    if (TheState().disk.erase(QString::fromUtf8(path)) > 0)
        return 0;
    errno = ENOENT;
    return -1;
}
