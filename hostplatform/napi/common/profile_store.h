// Where the profiles are kept: the interface between the service's calls and a store.
#pragma once

#include "napi.h"

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

class SqliteFile;

/// How an operation of a store ended: the code for the caller, and for anything but NAPI_OK a
/// sentence for a person that names the store and the reason.
struct [[nodiscard]] StoreResult {
    NAPI_STATUS status = NAPI_OK;
    std::string message;

    bool failed() const { return status != NAPI_OK; }
};

/// IDs of profiles are numbers of 32 bits.
inline bool isProfileId(std::int64_t number)
{
    return number >= 0 && number <= std::numeric_limits<std::uint32_t>::max();
}

/// A set of profiles, each with a unique name and an ID that no other profile ever had. The calls
/// have checked pointers and names before. A store hands out profile names only (profile_name.h),
/// and finds a profile by the name under which it lists it. Each operation takes effect completely
/// or not at all and fills its outputs on success only.
class ProfileStore {
public:
    virtual ~ProfileStore() = default;

    virtual StoreResult count(unsigned int &profiles) = 0;
    /// Names in the order of the IDs, at most limit of them.
    virtual StoreResult list(unsigned int limit, std::vector<std::string> &names) = 0;
    virtual StoreResult read(std::string_view name, NAP_PROFILE_S &record) = 0;
    virtual StoreResult modify(std::string_view name, const NAP_PROFILE_S &record) = 0;
    /// @param maximum  number of profiles at which the store counts as full
    virtual StoreResult create(std::string_view name, const NAP_PROFILE_S &record,
                               unsigned int maximum) = 0;
    virtual StoreResult remove(std::string_view name) = 0;
    /// Fails when the new name is that of a profile already.
    virtual StoreResult rename(std::string_view name, std::string_view newName) = 0;
    virtual StoreResult idByName(std::string_view name, std::uint32_t &id) = 0;
    virtual StoreResult nameById(std::uint32_t id, std::string &name) = 0;
    /// Writes all profiles, as they are now, into a store of their own in another state directory,
    /// which has none yet. NAPI_ERROR_UNAVAILABLE where profiles are not in a file.
    virtual StoreResult copyTo(const std::string &folder) = 0;
    /// What belongs to the store as a whole is kept here (stored_maximum.h).
    virtual SqliteFile &database() = 0;
};
