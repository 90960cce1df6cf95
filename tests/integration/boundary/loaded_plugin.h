// The built plug-in as an engine sees it: a file, two symbols and virtual tables.
#pragma once

#include "dmnative/dmt_tree.h"
#include "napi.h"

#include <cstdint>
#include <cstring>
#include <string>

/// The library while it is loaded, with all its symbols bound.
class LoadedPlugin {
public:
    LoadedPlugin();
    ~LoadedPlugin();
    LoadedPlugin(const LoadedPlugin &) = delete;
    LoadedPlugin &operator=(const LoadedPlugin &) = delete;

    int Version() const;
    int Mount(const char *root, JemSmartPtr<DmtPluginTree> &tree) const;

    /// Whether some handle still keeps the library in memory.
    static bool IsInMemory();

private:
    void *m_library;
};

/// What slot number `slot` of the object's virtual table holds, as a function of this type. The
/// object is its first argument.
template <class Function>
Function *Slot(const void *object, int slot)
{
    void **table;
    std::memcpy(&table, object, sizeof table);
    Function *function;
    std::memcpy(&function, table + slot, sizeof function);
    return function;
}

/// The reference count of an engine object: the signed 64-bit number after the table's address.
inline std::int64_t &CountOf(void *object)
{
    return *reinterpret_cast<std::int64_t *>(static_cast<char *>(object) + 8);
}

/// Output of a command; fails the test when it does not succeed.
std::string Output(const std::string &command);

/// Everything in a file.
std::string FileContent(const std::string &path);

/// The private directory that the host libraries of this process keep their state in.
const std::string &StateDirectory();

/// A record with these bearer addresses, all else zero.
NAP_PROFILE_S Record(const char *gprs, const char *csd = "", const char *csd2 = "");

/// Stores a profile with the real service and returns its ID in decimal; fails the test when it
/// cannot.
std::string StoreProfile(const char *name, const NAP_PROFILE_S &record);
