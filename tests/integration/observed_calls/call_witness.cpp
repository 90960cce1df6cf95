// A library that stands between a program and the host libraries (LD_PRELOAD) and writes every call
// that passes to the file $KUB_CALL_WITNESS: what an observer is held against.
#include <cstdlib>
#include <dlfcn.h>
#include <map>

#include "call_line.h"
#include "napi.h"
#include "setup_set_manager.h"

namespace {

std::FILE *file()
{
    static std::FILE *const opened = std::fopen(std::getenv("KUB_CALL_WITNESS"), "a");
    return opened;
}

/// The function of that name in the libraries behind this one.
template <class Function>
Function *behind(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

/// A profile's call by name whose outcome is its status alone.
int pass(CallLine line, const char *name, int status, const NAP_PROFILE_S *record = nullptr)
{
    line.profile = name;
    line.status = status;
    line.record = status == NAPI_OK ? record : nullptr;
    writeLine(file(), line);
    return status;
}

/// Paths of the settings files, by their managers.
std::map<const SETUP_SET_Manager *, QString> &paths()
{
    static std::map<const SETUP_SET_Manager *, QString> known;
    return known;
}

void write(const SETUP_SET_Manager *manager, CallLine line)
{
    line.file = paths()[manager];
    writeLine(file(), line);
}

} // namespace

// ---- Profile service ----------------------------------------------------------------------------

#define KUB_BEHIND(function) behind<decltype(function)>(#function)
#pragma GCC visibility push(default)

int NAPI_ListAllProfile(char *names, unsigned int *count)
{
    const int status = KUB_BEHIND(NAPI_ListAllProfile)(names, count);
    writeLine(file(), {.function = "NAPI_ListAllProfile", .count = *count, .status = status});
    return status;
}

int NAPI_ReadProfile(const char *name, NAP_PROFILE_S *record, int first, int second)
{
    const int status = KUB_BEHIND(NAPI_ReadProfile)(name, record, first, second);
    return pass({.function = "NAPI_ReadProfile"}, name, status, record);
}

int NAPI_ModifyProfile(const char *name, const NAP_PROFILE_S *record, int first, int second)
{
    const int status = KUB_BEHIND(NAPI_ModifyProfile)(name, record, first, second);
    return pass({.function = "NAPI_ModifyProfile"}, name, status, record);
}

int NAPI_CreateProfile(const char *name, const NAP_PROFILE_S *record, int first, int second)
{
    const int status = KUB_BEHIND(NAPI_CreateProfile)(name, record, first, second);
    return pass({.function = "NAPI_CreateProfile"}, name, status, record);
}

int NAPI_DeleteProfile(const char *name)
{
    return pass({.function = "NAPI_DeleteProfile"}, name, KUB_BEHIND(NAPI_DeleteProfile)(name));
}

int NAPI_GetProfileIDByName(const char *name, unsigned int *id)
{
    const int status = KUB_BEHIND(NAPI_GetProfileIDByName)(name, id);
    CallLine line = {.function = "NAPI_GetProfileIDByName"};
    if (status == NAPI_OK)
        line.id = *id;
    return pass(line, name, status);
}

int NAPI_GetProfileNameByID(unsigned int id, char *name)
{
    const int status = KUB_BEHIND(NAPI_GetProfileNameByID)(id, name);
    const CallLine line = {.function = "NAPI_GetProfileNameByID", .id = id};
    return pass(line, status == NAPI_OK ? name : "", status);
}

int NAPI_GetMaxProfiles(void)
{
    const int maximum = KUB_BEHIND(NAPI_GetMaxProfiles)();
    writeLine(file(),
              {.function = "NAPI_GetMaxProfiles", .count = static_cast<unsigned int>(maximum)});
    return maximum;
}

int NAPI_IsProfileValid(const char *name)
{
    return pass({.function = "NAPI_IsProfileValid"}, name, KUB_BEHIND(NAPI_IsProfileValid)(name));
}

// ---- Settings files -----------------------------------------------------------------------------

// A member that is looked up by name is called like a function with the object in front.
using Manager = SETUP_SET_Manager;

SETUP_SET_Manager::SETUP_SET_Manager(const QString &path, bool flag)
{
    behind<void(Manager *, const QString &, bool)>("_ZN17SETUP_SET_ManagerC1ERK7QStringb")(
        this, path, flag);
    paths()[this] = path;
    write(this, {.function = "open", .status = 1});
}

bool SETUP_SET_Manager::flush()
{
    const bool result = behind<bool(Manager *)>("_ZN17SETUP_SET_Manager5flushEv")(this);
    write(this, {.function = "flush", .status = result});
    return result;
}

QMap<QString, QString> SETUP_SET_Manager::getEntryKeyList(const QString &group) const
{
    using Member = QMap<QString, QString>(const Manager *, const QString &);
    write(this, {.function = "getEntryKeyList", .status = 1, .group = group});
    return behind<Member>("_ZNK17SETUP_SET_Manager15getEntryKeyListERK7QString")(this, group);
}

bool SETUP_SET_Manager::getSettingInfo(const QString &group, const QString &key, QString &value,
                                       const QString &defaultText, bool flag) const
{
    using Member =
        bool(const Manager *, const QString &, const QString &, QString &, const QString &, bool);
    const bool result =
        behind<Member>("_ZNK17SETUP_SET_Manager14getSettingInfoERK7QStringS2_RS0_S2_b")(
            this, group, key, value, defaultText, flag);
    write(this, {.function = "getSettingInfo",
                 .status = result,
                 .group = group,
                 .key = key,
                 .value = result ? value : QString()});
    return result;
}

bool SETUP_SET_Manager::setSettingInfo(const QString &group, const QString &key,
                                       const QString &value, bool flag)
{
    using Member = bool(Manager *, const QString &, const QString &, const QString &, bool);
    const bool result = behind<Member>("_ZN17SETUP_SET_Manager14setSettingInfoERK7QStringS2_S2_b")(
        this, group, key, value, flag);
    write(this, {.function = "setSettingInfo",
                 .status = result,
                 .group = group,
                 .key = key,
                 .value = value.isNull() ? QStringLiteral("") : value});
    return result;
}

bool SETUP_SET_Manager::removeEntry(const QString &group, const QString &key)
{
    using Member = bool(Manager *, const QString &, const QString &);
    const bool result =
        behind<Member>("_ZN17SETUP_SET_Manager11removeEntryERK7QStringS2_")(this, group, key);
    write(this, {.function = "removeEntry", .status = result, .group = group, .key = key});
    return result;
}

#pragma GCC visibility pop
